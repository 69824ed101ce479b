#include <iostream>

#include "Host/Commands.h"
#include "Host/OneTick.h"
#include "Host/StatusReport.h"

namespace wakelatch::host {

ExitStatus runStatus(const StatusOptions& options, Tools& tools) {
  const OneTick tick = tickOnce(options.mode, options.agent, tools);
  const StatusReport report = makeStatusReport(tick);
  if (options.json) {
    std::cout << encode(report, DateCoding::iso8601) << '\n';
  } else {
    std::cout << statusTable(report, tick.seen.at);
  }
  return ExitStatus::done;
}

}  // namespace wakelatch::host
