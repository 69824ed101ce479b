#include "Host/trace/Limits.h"

#include "Host/UserFile.h"
#include "WakelatchCore/Json.h"

namespace wakelatch::host {

Limit limitOf(const Figures& figures) {
  Limit limit;
  for (const Measure& measure : measures) {
    limit.emplace(measure.key, tenths(measure.of(figures)));
  }
  return limit;
}

Limits loadLimits(const std::filesystem::path& file) {
  return decodeFile<Limits>(file);
}

std::string encodeLimits(const Limits& limits) {
  std::string text;
  for (const auto& [trace, limit] : limits) {
    text += (text.empty() ? "{\n  " : ",\n  ") + encode(trace) + ": {";
    std::string_view before = "\n    ";
    for (const auto& [key, value] : limit) {
      text.append(before).append(encode(key)).append(": ").append(encode(value));
      before = ",\n    ";
    }
    text += "\n  }";
  }
  return text.empty() ? "{}\n" : text + "\n}\n";
}

std::vector<std::string> compare(const Limits& limits, const Limits& now) {
  std::vector<std::string> differences;
  for (const auto& [trace, figures] : now) {
    const auto known = limits.find(trace);
    if (known == limits.end()) {
      differences.push_back(trace + ": has no limits");
      continue;
    }
    for (const auto& [key, value] : figures) {
      const auto found = known->second.find(key);
      const double limit = found == known->second.end() ? 0 : tenths(found->second);
      if (value == limit) continue;
      differences.push_back(
          trace + ": " + key + " is " + encode(value) + ", limit " + encode(limit) +
          (value > limit || key == "workSeconds" ? ": worse" : ": better, tighten the limit"));
    }
  }
  for (const auto& [trace, limit] : limits) {
    if (!now.contains(trace)) {
      differences.push_back(trace + ": has limits, but there is no such trace");
    }
  }
  return differences;
}

}  // namespace wakelatch::host
