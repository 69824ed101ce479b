// Why a decision came out as it did: every rule in order with its inputs, and what changes next.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Host/OneTick.h"
#include "Host/StatusReport.h"
#include "WakelatchCore/Json.h"

namespace wakelatch::host {

struct RuleExplanation {
  std::int64_t number = 0;  ///< place in the order of the rules
  std::string rule;
  std::string inputs;   ///< values against thresholds
  std::string outcome;  ///< "does not apply", "applies", "not reached"
};

struct Explanation {
  StatusReport status;  ///< the tick that is explained
  std::vector<RuleExplanation> rules;
  std::vector<std::string> next;  ///< what changes next, and when
};

/// Explains the decision of one tick.
Explanation explain(const OneTick& tick);
/// An explanation as text for people.
std::string explanationText(const Explanation& explanation);

}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto json::fields<host::RuleExplanation> = std::tuple{
    json::required("number", &host::RuleExplanation::number),
    json::required("rule", &host::RuleExplanation::rule),
    json::required("inputs", &host::RuleExplanation::inputs),
    json::required("outcome", &host::RuleExplanation::outcome),
};
template <>
inline constexpr auto json::fields<host::Explanation> = std::tuple{
    json::required("status", &host::Explanation::status),
    json::required("rules", &host::Explanation::rules),
    json::required("next", &host::Explanation::next),
};
}  // namespace wakelatch
