// Local time: what clocks and calendars show in the process's time zone, which is the C library's:
// that of TZ, a name or a rule, or else the system's. It is determined at the first call. A later
// change of TZ or of the system's setting is noticed once something in the process calls tzset(),
// as localtime(), mktime() and strftime() do; on macOS by itself.
//
// Dates are Gregorian at all times, also before that calendar was introduced. Day arithmetic needs
// no zone: it is done on the dates. Callable from any thread while none changes the environment.
#pragma once

#include <chrono>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// The days whose years have four digits.
inline constexpr std::chrono::local_days firstDay{std::chrono::year{0} / 1 / 1};
inline constexpr std::chrono::local_days lastDay{std::chrono::year{9999} / 12 / 31};

/// How far local clocks are ahead of UTC at an instant; before and after the days above, and for
/// what is not a number, as at their ends. 0 in a zone that the system does not know.
std::chrono::seconds localOffset(Timestamp instant);

/// The local date at an instant. One outside of `firstDay` to `lastDay` counts as the nearer of
/// the two, one that is not a number as the first.
std::chrono::local_days localDay(Timestamp instant);

}  // namespace wakelatch::platform
