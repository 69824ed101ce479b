// Chooses how often a watch looks at the machine.
#pragma once

#include <optional>

#include "Host/OneTick.h"

namespace wakelatch::host {

/// Slows a watch down (it is then quiet) while there is nothing to lose: nothing is held or about
/// to be held, and no agent runs, writes files or shows text. The first sign of an agent ends this.
/// A quiet watch also looks less closely: see Observer::setQuiet() and SystemTools::setQuiet().
class Pace {
 public:
  /// The time between quiet ticks, in seconds. It has to stay below
  /// UsageMetrics::maxClampedElapsed: the statistics do not count longer ticks.
  static constexpr double quietSeconds = 8;
  /// How long there must have been nothing to lose before the watch is quiet, in seconds. Users who
  /// have just started a watch or used an agent are likely to start an agent soon, and its work
  /// should be seen at once.
  static constexpr double patience = 300;

  /// To be called with each tick and what was held then.
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
