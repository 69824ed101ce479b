// How often a watch looks.
#pragma once

#include <algorithm>
#include <optional>

#include "Host/OneTick.h"

namespace wakelatch::host {

/// Slows a watch down while there is nothing to lose: nothing is held or about to be, and no agent
/// runs, writes files or shows text. The first sign of one brings it back.
class Pace {
 public:
  /// Between quiet ticks. The statistics take more than 10 s for a sleep of the machine.
  static constexpr double quietSeconds = 8;
  /// So long there must have been nothing to lose before it is quiet, in seconds: somebody who has
  /// just begun to watch is about to start an agent.
  static constexpr double patience = 30;

  /// @param intervalSeconds  between ticks that are not quiet
  /// @param isFixed          between all ticks
  Pace(double intervalSeconds, bool isFixed) : interval_(intervalSeconds), isFixed_(isFixed) {}

  /// To be told of each tick, and of what was held then.
  void follow(const OneTick& tick, const Held& held) {
    const Timestamp now = tick.seen.at;
    if (hasSomethingToLose(tick, held) || (idleSince_ && *idleSince_ > now)) idleSince_.reset();
    if (!idleSince_ && !hasSomethingToLose(tick, held)) idleSince_ = now;
    isQuiet_ = !isFixed_ && idleSince_ && secondsBetween(*idleSince_, now) >= patience;
  }

  bool isQuiet() const { return isQuiet_; }
  /// From the start of the last tick to that of the next.
  double seconds() const { return isQuiet_ ? std::max(interval_, quietSeconds) : interval_; }

 private:
  static bool hasSomethingToLose(const OneTick& tick, const Held& held) {
    const ActivityDetector::Evidence& seen = tick.seen.evidence;
    const bool seesAgents = !seen.process.empty() || !seen.merged.empty() || !seen.turns.empty() ||
                            !seen.session.dropped.empty() || !seen.accessibility.dropped.empty();
    const bool decides = tick.decision.shouldPreventSleep || tick.decision.shouldSleepNow ||
                         tick.decision.status == GuardStatus::idleGrace;
    const bool holds = held.isHeld() || held.isToolWanted || held.isRestoreOpen || held.prompt ||
                       held.releaseDueAt;
    return seesAgents || decides || holds;
  }

  const double interval_;
  const bool isFixed_;
  std::optional<Timestamp> idleSince_;
  bool isQuiet_ = false;
};

}  // namespace wakelatch::host
