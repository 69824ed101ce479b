// What the score of each trace was when it was last agreed to: a file that lies beside the traces
// and is compared with the score of today. Pure, but for loadLimits().
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "Host/trace/Score.h"
#include "WakelatchCore/Json.h"

namespace wakelatch::host {

/// The figures of the machine that are compared, rounded to tenths of a second.
struct Limit {
  double workSeconds = 0;
  double notHeldSeconds = 0;
  double longestNotHeldSeconds = 0;
  std::int64_t sleepsAskedInWork = 0;
  double beyondGraceSeconds = 0;
  double idleHeldSeconds = 0;
  double medianDetectionSeconds = 0;
  double worstDetectionSeconds = 0;
  double otherNameSeconds = 0;
};
using Limits = std::map<std::string, Limit>;  ///< by the trace's name

Limit limitOf(const Figures& figures);

/// Throws std::runtime_error naming the file, and the place in it, when it is no limits file.
Limits loadLimits(const std::filesystem::path& file);

/// The file's content: traces by name and a line a figure, so that differences are readable.
std::string encodeLimits(const Limits& limits);

/// A figure that is not what it was. Of a trace that one side lacks, workSeconds alone is listed.
struct Difference {
  std::string trace;
  std::string figure;           ///< its key in the file
  std::optional<double> limit;  ///< absent: the trace has no limits
  std::optional<double> now;    ///< absent: there are limits, but no such trace
  /// More than the limit allows; also other work than before, since that is not the same trace, and
  /// a side that lacks it. Otherwise the limit wants to be tightened.
  bool isWorse = false;
};

/// Every difference, by trace.
/// @param now  the machine's figures by the trace's name
std::vector<Difference> compare(const Limits& limits, const std::map<std::string, Figures>& now);

/// "night: notHeldSeconds is 12.5, limit 10: worse".
std::string describe(const Difference& difference);

}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto json::fields<host::Limit> = std::tuple{
    json::required("workSeconds", &host::Limit::workSeconds),
    json::required("notHeldSeconds", &host::Limit::notHeldSeconds),
    json::required("longestNotHeldSeconds", &host::Limit::longestNotHeldSeconds),
    json::required("sleepsAskedInWork", &host::Limit::sleepsAskedInWork),
    json::required("beyondGraceSeconds", &host::Limit::beyondGraceSeconds),
    json::required("idleHeldSeconds", &host::Limit::idleHeldSeconds),
    json::required("medianDetectionSeconds", &host::Limit::medianDetectionSeconds),
    json::required("worstDetectionSeconds", &host::Limit::worstDetectionSeconds),
    json::required("otherNameSeconds", &host::Limit::otherNameSeconds),
};
}  // namespace wakelatch
