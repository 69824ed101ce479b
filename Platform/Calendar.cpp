#include "Platform/Calendar.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace wakelatch::platform {

std::chrono::local_days TimeZone::day(Timestamp instant) const {
  using namespace std::chrono;
  // Two days of margin leave room for any offset; what is not a number becomes the lower bound.
  constexpr auto bound = [](local_days day, days margin) {
    return static_cast<double>(seconds{day.time_since_epoch() + margin}.count());
  };
  const double wholeSeconds = std::clamp(
      std::fmax(std::floor(instant.time_since_epoch().count()), bound(firstDay, days{-2})),
      bound(firstDay, days{-2}), bound(lastDay, days{2}));
  const sys_seconds second{seconds{static_cast<std::int64_t>(wholeSeconds)}};
  const local_seconds local{second.time_since_epoch() + offset(second)};
  return std::clamp(floor<days>(local), firstDay, lastDay);
}

}  // namespace wakelatch::platform
