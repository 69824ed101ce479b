// When the keep-awake tool is to be believed, by what can be seen from outside: its process ids.
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

  /// It runs, and has run for 15 s before, without an early end since.
  bool isProven(const Children& running) const { return isTrusted_ && !running.empty(); }
  /// It has ended within 15 s of its start, less than a minute ago.
  bool isPaused(Timestamp now) const { return endedEarlyAt_ && !isOver(*endedEarlyAt_, 60, now); }
  bool isYoung(Timestamp now) const { return startedAt_ && !isOver(*startedAt_, 15, now); }

  /// A tick that found these children and left those.
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
  /// A clock that was set back counts as passed.
  static bool isOver(Timestamp start, double seconds, Timestamp now) {
    const double elapsed = secondsBetween(start, now);
    return elapsed < 0 || elapsed >= seconds;
  }

  bool isTrusted_ = false;
  std::optional<Timestamp> startedAt_, endedEarlyAt_;
};

}  // namespace wakelatch::soak
