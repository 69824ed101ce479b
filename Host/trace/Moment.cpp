#include "Host/trace/Moment.h"

#include <cmath>
#include <stdexcept>
#include <vector>

#include "Platform/Calendar.h"
#include "Platform/Numbers.h"
#include "Platform/Split.h"

namespace wakelatch::host {

Timestamp momentAfter(Timestamp start, const std::string& text) {
  constexpr double restOfSecond = 0.999;  // ticks are told in whole seconds
  if (const auto instant = platform::parseIso8601(text)) return after(*instant, restOfSecond);
  if (const auto instant = platform::parseIso8601Fraction(text)) return *instant;
  std::vector<std::int32_t> parts;
  for (const std::string_view piece : platform::Split(text, ':')) {
    const auto number = platform::parseInt32(piece);
    parts.push_back(number && *number >= 0 && *number < (parts.empty() ? 24 : 60) ? *number : -1);
  }
  if (parts.size() == 2) parts.push_back(59);
  if (parts.size() != 3 || parts[0] < 0 || parts[1] < 0 || parts[2] < 0) {
    throw std::runtime_error("\"" + text +
                             "\" is no time: 03:12, 03:12:30 or 2026-11-23T03:12:30Z is wanted");
  }
  constexpr double day = 24 * 60 * 60;
  const auto offset = platform::localOffset(start);
  const double shown =
      std::fmod(start.time_since_epoch().count() + static_cast<double>(offset.count()) + day, day);
  const double wanted = 3600.0 * parts[0] + 60.0 * parts[1] + parts[2] + restOfSecond;
  return after(start, std::fmod(wanted - shown + day, day));
}

}  // namespace wakelatch::host
