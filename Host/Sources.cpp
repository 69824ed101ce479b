#include "Host/Sources.h"

#include "Host/SystemTools.h"
#include "Platform/Files.h"

namespace wakelatch::host {

MachineSources::MachineSources(CommandRunning& tools)
    : files_(platform::homeDirectory(), sessionFileDepth),
      turns_(files_),
      sources_{tools, platform::systemAccessibility(), files_, turns_, [] {
                 serviceSystemEvents();
                 return thermalState();
               }} {}

}  // namespace wakelatch::host
