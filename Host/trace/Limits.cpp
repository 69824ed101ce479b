#include "Host/trace/Limits.h"

#include <stdexcept>
#include <string_view>

#include "Platform/Files.h"

namespace wakelatch::host {
namespace {

/// Calls `use(key, member)` for every figure.
template <class Use>
void forEachFigure(Use&& use) {
  std::apply([&](const auto&... field) { (use(field.key, field.member), ...); },
             json::fields<Limit>);
}

}  // namespace

Limit limitOf(const Figures& figures) {
  return {.workSeconds = tenths(figures.workSeconds),
          .notHeldSeconds = tenths(figures.notHeldSeconds),
          .longestNotHeldSeconds = tenths(figures.longestNotHeldSeconds),
          .sleepsAskedInWork = figures.sleepsAskedInWork,
          .beyondGraceSeconds = tenths(figures.beyondGraceSeconds),
          .idleHeldSeconds = tenths(figures.idleHeldSeconds),
          .medianDetectionSeconds = tenths(figures.medianDetection()),
          .worstDetectionSeconds = tenths(figures.worstDetection()),
          .otherNameSeconds = tenths(figures.otherNameSeconds)};
}

Limits loadLimits(const std::filesystem::path& file) {
  const std::string text = platform::readFile(file);
  try {
    return decode<Limits>(text);
  } catch (const DecodingError& error) {
    throw std::runtime_error(file.string() + ": " + error.what());
  }
}

std::string encodeLimits(const Limits& limits) {
  std::string text;
  for (const auto& [trace, limit] : limits) {
    text += (text.empty() ? "{\n  " : ",\n  ") + encode(trace) + ": {";
    std::string_view before = "\n    ";
    forEachFigure([&, &figures = limit](std::string_view key, auto member) {
      text += std::string(before) + encode(std::string(key)) + ": " + encode(figures.*member);
      before = ",\n    ";
    });
    text += "\n  }";
  }
  return text.empty() ? "{}\n" : text + "\n}\n";
}

std::vector<Difference> compare(const Limits& limits, const std::map<std::string, Figures>& now) {
  struct Sides {
    std::optional<Limit> limit, now;
  };
  std::map<std::string, Sides> traces;
  for (const auto& [trace, limit] : limits) traces[trace].limit = limit;
  for (const auto& [trace, figures] : now) traces[trace].now = limitOf(figures);

  std::vector<Difference> differences;
  for (const auto& each : traces) {
    const Sides& sides = each.second;
    forEachFigure([&](std::string_view key, auto member) {
      const bool isWork = key == "workSeconds";
      Difference difference{each.first, std::string(key), {}, {}, isWork};
      if (sides.limit) difference.limit = static_cast<double>((*sides.limit).*member);
      if (sides.now) difference.now = static_cast<double>((*sides.now).*member);
      if (!sides.limit || !sides.now) {
        if (isWork) differences.push_back(difference);
      } else if (tenths(*difference.limit) != *difference.now) {
        difference.isWorse = isWork || *difference.now > *difference.limit;
        differences.push_back(difference);
      }
    });
  }
  return differences;
}

std::string describe(const Difference& difference) {
  if (!difference.limit) return difference.trace + ": has no limits";
  if (!difference.now) return difference.trace + ": has limits, but there is no such trace";
  return difference.trace + ": " + difference.figure + " is " + encode(*difference.now) +
         ", limit " + encode(*difference.limit) +
         (difference.isWorse ? ": worse" : ": better, tighten the limit");
}

}  // namespace wakelatch::host
