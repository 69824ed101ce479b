// Determines from its process ids alone when the keep-awake tool counts as proven to work.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "Benchmarks/Soak/Checks.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::soak {

class ToolModel {
 public:
  using Children = std::vector<std::int32_t>;

  /// Whether the tool runs, and has run for 15 s at some time without an early end since.
  bool isProven(const Children& running) const { return isTrusted_ && !running.empty(); }
  /// Whether the tool ended less than a minute ago, within 15 s of its start.
  bool isPaused(Timestamp now) const { return endedEarlyAt_ && !isOver(*endedEarlyAt_, 60, now); }
  bool isYoung(Timestamp now) const { return startedAt_ && !isOver(*startedAt_, 15, now); }

  /// Follows a tick, by the children before and after it.
  void tick(Timestamp now, const Children& before, const Children& after, Checks& checks) {
    if (startedAt_) {
      const bool isEarly = isYoung(now);
      if (before.empty()) {
        if (isEarly) {
          isTrusted_ = false;
          endedEarlyAt_ = now;
        }
        startedAt_.reset();
      } else if (!isEarly) {
        isTrusted_ = true;
        endedEarlyAt_.reset();
      }
    }
    if (after.empty()) {
      startedAt_.reset();
    } else if (after != before) {
      checks.require(!isPaused(now), "a tool that ended early is not started again for a minute");
      startedAt_ = now;
    }
  }

 private:
  /// Whether the time is over; if the clock was set back behind `start`, it is.
  static bool isOver(Timestamp start, double seconds, Timestamp now) {
    const double elapsed = secondsBetween(start, now);
    return elapsed < 0 || elapsed >= seconds;
  }

  bool isTrusted_ = false;
  std::optional<Timestamp> startedAt_, endedEarlyAt_;
};

}  // namespace wakelatch::soak
