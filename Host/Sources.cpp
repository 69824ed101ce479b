#include "Host/Sources.h"

#include "Host/SystemTools.h"
#include "Platform/Files.h"

namespace wakelatch::host {

MachineSources::MachineSources(CommandRunning& tools, Files files)
    : walkingFiles_(platform::homeDirectory(), sessionFileDepth),
      files_(files == Files::watched && WatchingFileProbe::isSupported()
                 ? static_cast<const FileActivityProbing&>(
                       watchedFiles_.emplace(walkingFiles_.home(), sessionFileDepth))
                 : walkingFiles_),
      turns_(files_),
      sources_{[this] {
                 serviceSystemEvents();
                 files_.beginLook();
               },
               tools,
               platform::systemAccessibility(),
               files_,
               turns_,
               [] { return thermalState(); }} {}

std::size_t MachineSources::verifyFiles(double seconds) {
  return watchedFiles_ ? watchedFiles_->verify(seconds) : 0;
}

}  // namespace wakelatch::host
