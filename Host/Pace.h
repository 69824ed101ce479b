// How often a watch looks.
#pragma once

#include <optional>

#include "Host/OneTick.h"

namespace wakelatch::host {

/// Slows a watch down while there is nothing to lose: nothing is held or about to be, and no agent
/// runs, writes files or shows text. The first sign of one brings it back. Meanwhile power, lid and
/// processes are asked about less closely too: see Observer::setQuiet() and
/// SystemTools::setQuiet().
class Pace {
 public:
  /// The time between quiet ticks. The statistics take more than 10 s for a sleep of the machine.
  static constexpr double quietSeconds = 8;
  /// So long there must have been nothing to lose before it is quiet, in seconds: who has just
  /// begun to watch, or has used an agent a while ago, is about to start one, and its work is to be
  /// seen at once.
  static constexpr double patience = 300;

  /// To be told of each tick, and of what was held then.
  void follow(const OneTick& tick, const Held& held) {
    const Timestamp now = tick.seen.at;
    if (hasSomethingToLose(tick, held) || (idleSince_ && *idleSince_ > now)) idleSince_.reset();
    if (!idleSince_ && !hasSomethingToLose(tick, held)) idleSince_ = now;
    isQuiet_ = idleSince_ && secondsBetween(*idleSince_, now) >= patience;
  }

  bool isQuiet() const { return isQuiet_; }

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

  std::optional<Timestamp> idleSince_;
  bool isQuiet_ = false;
};

}  // namespace wakelatch::host
