// A second, independent count of the statistics, in whole milliseconds and by the C library's
// calendar.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "Benchmarks/Soak/Checks.h"
#include "Benchmarks/Soak/Guard.h"
#include "Benchmarks/Soak/World.h"

namespace wakelatch::soak {

/// The rounding error of an interval, in seconds: half the last bit of a present-day instant,
/// stored as a double, for each of the interval's two ends.
inline constexpr double errorPerTick = 2.4e-7;

class Ledger {
 public:
  /// Counts one tick of the guard.
  /// @param isProven  whether the keep-awake tool ran when the tick began and was proven to work
  void book(const Guard& guard, const World& world, bool isProven) {
    const UsageMetrics& metrics = guard.usage.metrics();
    const bool isOpen = metrics.sessionStartedAt.has_value();
    if (isOpen && !wasOpen_) ++opened;
    if (!isOpen && wasOpen_) ++closed;
    wasOpen_ = isOpen;

    const std::int64_t elapsed = lastTick_ ? world.milliseconds - *lastTick_ : 0;
    lastTick_ = world.milliseconds;
    if (elapsed <= 0 || elapsed > 10'000 || !isProven) return;
    Day& day = days_[dayOf(world.milliseconds)];
    const GuardStatus status = guard.wish.decision.status;
    std::int64_t* kind = nullptr;
    if (status == GuardStatus::pluggedInUnlimited) kind = &day.pluggedIn;
    if (status == GuardStatus::keepingAwake) {
      kind = world.mode() == AppMode::manualKeepAwake  ? &day.manual
             : guard.wish.lidState == LidState::closed ? &day.guarded
                                                       : &day.keptAwake;
    }
    if (kind == nullptr) return;
    *kind += elapsed;
    ++booked;
  }

  /// Compares every day; returns the largest difference in seconds.
  double compare(const UsageMetrics& metrics, Checks& checks) const {
    double largest = 0;
    const double bound = errorPerTick * static_cast<double>(booked);
    const auto close = [&](double seconds, std::int64_t milliseconds, const char* what) {
      const double difference = std::abs(seconds - static_cast<double>(milliseconds) / 1000);
      largest = std::max(largest, difference);
      checks.require(difference <= bound, what);
    };
    Day sum;
    for (const auto& [key, bucket] : metrics.days) {
      const auto found = days_.find(key);
      const Day day = found == days_.end() ? Day() : found->second;
      close(bucket.protectedSeconds, day.guarded, "a day's protected time is what was booked");
      close(bucket.keptAwakeSeconds, day.keptAwake, "a day's kept-awake time is what was booked");
      close(bucket.manualSeconds, day.manual, "a day's manual time is what was booked");
      close(bucket.pluggedInUnlimitedSeconds, day.pluggedIn,
            "a day's plugged-in time is what was booked");
    }
    for (const auto& [key, day] : days_) {
      checks.require(metrics.days.contains(key), "every booked day has its statistics");
      sum.guarded += day.guarded;
      sum.keptAwake += day.keptAwake;
      sum.manual += day.manual;
      sum.pluggedIn += day.pluggedIn;
    }
    close(metrics.totalProtectedSeconds(), sum.guarded, "the protected time is what was booked");
    close(metrics.totalKeptAwakeSeconds(), sum.keptAwake, "the kept-awake time is what was booked");
    close(metrics.totalManualSeconds(), sum.manual, "the manual time is what was booked");
    close(metrics.totalPluggedInUnlimitedSeconds(), sum.pluggedIn,
          "the plugged-in time is what was booked");

    double agents = 0;
    for (const auto& [agent, seconds] : metrics.protectedSecondsByAgent()) agents += seconds;
    close(agents, sum.guarded, "the agents' protected times are the whole");
    std::int64_t saved = 0;
    for (const auto& [agent, sessions] : metrics.sessionsByAgent()) saved += sessions;
    checks.require(saved == metrics.totalSessionsSaved(),
                   "the agents' saved sessions are the whole");
    checks.require(closed == metrics.totalWorkSessions(), "every closed session was counted");
    checks.require(opened == closed + (metrics.sessionStartedAt ? 1 : 0),
                   "every opened session is closed or open");
    return largest;
  }

  struct Day {
    std::int64_t guarded = 0, keptAwake = 0, manual = 0, pluggedIn = 0;  ///< milliseconds
  };
  const std::map<std::string, Day>& days() const { return days_; }

  std::int64_t opened = 0, closed = 0, booked = 0;

 private:
  std::map<std::string, Day> days_;
  std::optional<std::int64_t> lastTick_;
  bool wasOpen_ = false;
};

}  // namespace wakelatch::soak
