#include "Host/Sources.h"

#include "Host/SystemTools.h"
#include "Platform/Files.h"

namespace wakelatch::host {

MachineSources::MachineSources(CommandRunning& tools)
    : files_(platform::homeDirectory(), sessionFileDepth),
      sources_{tools, platform::systemAccessibility(), files_, [] {
                 serviceSystemEvents();
                 return thermalState();
               }} {}

}  // namespace wakelatch::host
