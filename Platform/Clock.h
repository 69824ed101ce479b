// Points in time and their text forms. Pure but for now(); callable from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace wakelatch {

/// An instant of the wall clock with sub-second precision, counted in seconds since
/// 1970-01-01T00:00:00Z (leap seconds not counted).
using Timestamp = std::chrono::sys_time<std::chrono::duration<double>>;

/// Seconds from `from` to `to`; negative when `to` is the earlier one.
constexpr double secondsBetween(Timestamp from, Timestamp to) {
  return (to - from).count();
}

/// The instant `seconds` after `start`.
constexpr Timestamp after(Timestamp start, double seconds) {
  return start + std::chrono::duration<double>(seconds);
}

}  // namespace wakelatch

namespace wakelatch::platform {

/// The wall clock's current time.
Timestamp now();

///@{
/// An instant as whole milliseconds since 1970, and back. What comes back from whole milliseconds
/// is the same instant each time.
std::int64_t millisecondsSince1970(Timestamp time);
Timestamp fromMilliseconds(std::int64_t milliseconds);
///@}

/// `time` in ISO 8601, UTC, cut to the whole second at or before it: "2025-03-01T14:05:09Z".
/// Years outside 0000 to 9999 are written with a sign and at least four digits; an instant no
/// calendar can hold (not a number, infinite, beyond the year 32767) is written as "-".
std::string iso8601(Timestamp time);

/// As iso8601(), cut to the millisecond: "2025-03-01T14:05:09.123Z".
std::string iso8601Milliseconds(Timestamp time);

/// The instant that a text of exactly the form "2025-03-01T14:05:09Z" names, or nothing.
std::optional<Timestamp> parseIso8601(std::string_view text);

/// As parseIso8601(), for a text that may also have a fraction of one to nine digits, as in
/// "2025-03-01T14:05:09.123Z".
std::optional<Timestamp> parseIso8601Fraction(std::string_view text);

}  // namespace wakelatch::platform
#pragma GCC visibility pop
