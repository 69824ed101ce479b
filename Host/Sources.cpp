#include "Host/Sources.h"

#include "Host/SystemTools.h"
#include "Platform/Files.h"

namespace wakelatch::host {

MachineSources::MachineSources(CommandRunning& tools)
    : walkingFiles_(platform::homeDirectory(), sessionFileDepth),
      files_(walkingFiles_),
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

}  // namespace wakelatch::host
