#include <iostream>

#include "Host/Commands.h"
#include "Host/Explanation.h"
#include "Host/OneTick.h"
#include "Host/StatusReport.h"
#include "Host/Terminal.h"

namespace wakelatch::host {

ExitStatus runExplain(const ExplainOptions& options, Tools& tools) {
  const Explanation explanation = explain(tickOnce(options.mode, tools));
  if (options.json) {
    std::cout << encode(explanation, DateCoding::iso8601) << '\n';
    return ExitStatus::done;
  }
  for (const RuleExplanation& rule : explanation.rules) {
    std::cout << (rule.outcome == "applies" ? "-> " : "   ") << rule.number
              << (rule.number < 10 ? ".  " : ". ") << rule.rule << ": " << rule.outcome << '\n'
              << "        " << printable(rule.inputs) << '\n';
  }
  std::cout << "\nDecision  " << printable(statusLine(explanation.status)) << '\n';
  for (const std::string& next : explanation.next)
    std::cout << "Next      " << printable(next) << '\n';
  return ExitStatus::done;
}

}  // namespace wakelatch::host
