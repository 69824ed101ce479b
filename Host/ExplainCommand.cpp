#include <iostream>

#include "Host/Commands.h"
#include "Host/Explanation.h"
#include "Host/OneTick.h"

namespace wakelatch::host {

ExitStatus runExplain(const ExplainOptions& options, Tools& tools) {
  const Explanation explanation = explain(tickOnce(options.mode, options.agent, tools));
  if (options.json) {
    std::cout << encode(explanation, DateCoding::iso8601) << '\n';
  } else {
    std::cout << explanationText(explanation);
  }
  return ExitStatus::done;
}

}  // namespace wakelatch::host
