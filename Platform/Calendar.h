// Civil days: which date a local calendar shows at an instant. Dates are Gregorian at all times,
// also before that calendar was introduced. Day arithmetic needs no zone: it is done on the dates.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// The days whose years have four digits.
inline constexpr std::chrono::local_days firstDay{std::chrono::year{0} / 1 / 1};
inline constexpr std::chrono::local_days lastDay{std::chrono::year{9999} / 12 / 31};

/// The rules of one time zone. Immutable; callable from any thread.
class TimeZone {
 public:
  /// The process's zone, found out when first asked for and kept from then on.
  static const TimeZone& ofProcess();

  /// The zone with a name such as "America/Sao_Paulo". Throws std::invalid_argument when the system
  /// knows none by that name.
  explicit TimeZone(const std::string& name);
  ~TimeZone();
  TimeZone(const TimeZone&) = delete;
  TimeZone& operator=(const TimeZone&) = delete;

  /// How far local clocks are ahead of UTC at an instant.
  std::chrono::seconds offset(std::chrono::sys_seconds instant) const;

  /// The local date at an instant. One outside of `firstDay` to `lastDay` counts as the nearer of
  /// the two, one that is not a number as the first.
  std::chrono::local_days day(Timestamp instant) const;

 private:
  struct Rules;
  explicit TimeZone(std::unique_ptr<Rules> rules);

  std::unique_ptr<Rules> rules_;
};

}  // namespace wakelatch::platform
