#include "Platform/Calendar.h"

#include <time.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace wakelatch::platform {
namespace {

using namespace std::chrono;

/// The whole second at or before an instant, near the years 0000 to 9999.
sys_seconds wholeSecond(Timestamp instant) {
  // Two days of margin leave room for any offset; what is not a number becomes the lower bound.
  constexpr auto bound = [](local_days day, days margin) {
    return static_cast<double>(seconds{day.time_since_epoch() + margin}.count());
  };
  constexpr double first = bound(firstDay, days{-2}), last = bound(lastDay, days{2});
  const double whole =
      std::clamp(std::fmax(std::floor(instant.time_since_epoch().count()), first), first, last);
  return sys_seconds{seconds{static_cast<std::int64_t>(whole)}};
}

}  // namespace

seconds localOffset(Timestamp instant) {
  // localtime_r() looks at TZ by itself only if nothing in the process has done so before.
  [[maybe_unused]] static const bool isZoneKnown = (::tzset(), true);
  static_assert(sizeof(time_t) >= sizeof(std::int64_t),
                "a 32-bit system needs -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64");
  const time_t second = wholeSecond(instant).time_since_epoch().count();
  tm local{};
  ::localtime_r(&second, &local);
  return seconds{local.tm_gmtoff};
}

local_days localDay(Timestamp instant) {
  const local_seconds local{wholeSecond(instant).time_since_epoch() + localOffset(instant)};
  return std::clamp(floor<days>(local), firstDay, lastDay);
}

}  // namespace wakelatch::platform
