// `status` and `explain`: what is decided on the machine as it is now, and why, printed as text or
// as one JSON object. They look for themselves as a running watch would, whose state file they
// read, and write no file. They leave with 1 when settings, catalogue or machine cannot be read.
#include <iostream>

#include "Host/Commands.h"
#include "Host/Explanation.h"
#include "Host/OneTick.h"
#include "Host/StatusReport.h"

namespace wakelatch::host {

ExitStatus runCommand(const StatusOptions& options, Tools& tools) {
  const OneTick tick = tickOnce(options.mode, options.agent, tools);
  const StatusReport report = makeStatusReport(tick);
  std::cout << (options.json ? encode(report, DateCoding::iso8601) + '\n'
                             : statusTable(report, tick.seen.at));
  return ExitStatus::done;
}

ExitStatus runCommand(const ExplainOptions& options, Tools& tools) {
  const Explanation explanation = explain(tickOnce(options.mode, options.agent, tools));
  std::cout << (options.json ? encode(explanation, DateCoding::iso8601) + '\n'
                             : explanationText(explanation));
  return ExitStatus::done;
}

}  // namespace wakelatch::host
