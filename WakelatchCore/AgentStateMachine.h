// The decision engine: turns one tick's observations into a GuardDecision, and plans the release of
// a lid-closed keep-awake.
#pragma once

#include <optional>

#include "Platform/Clock.h"
#include "WakelatchCore/Models.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// The rules of AgentStateMachine::evaluate(). Each value is the rule's place in the order in which
/// they are tried; the fourth step decides nothing, it chooses the profile of those after it.
enum class GuardRule {
  off = 1,
  batteryLevelUnknown = 2,
  batteryCutoff = 3,
  heat = 5,
  manual = 6,
  pluggedInUnlimited = 7,
  activeWork = 8,
  idleGrace = 9,
  watching = 10,  ///< applies when none of the others does
};

/// Decides once per tick. No lock: all calls on one instance come from one thread at a time. Never
/// blocks, never fails.
class AgentStateMachine {
 public:
  /// What is remembered between ticks.
  struct Memory {
    std::optional<Timestamp> lastActiveSignalAt = {};  ///< the idle grace counts from here
    bool hasSeenWork = false;                          ///< since the last reset
    bool completionSleepIssued = false;  ///< the one sleep after finished work was asked for
  };

  AgentStateMachine() = default;
  /// Goes on from what another instance remembered.
  explicit AgentStateMachine(const Memory& memory) : memory_(memory) {}
  AgentStateMachine(const AgentStateMachine&) = delete;
  AgentStateMachine& operator=(const AgentStateMachine&) = delete;

  /// A copy to be stored, to be shown, or to be handed to another instance.
  Memory memory() const { return memory_; }

  /// Forgets all work seen.
  void reset();
  /// Work was seen at `time`.
  void markActive(Timestamp time);
  /// Work ended at `time`: the grace period (seconds) counts as over since one second before, so
  /// the next evaluation without an active signal goes straight to the completion sleep.
  void markFinished(Timestamp time, double gracePeriod);

  /// The first rule that applies decides, in the order of GuardRule.
  /// @param signal             the strongest of the tick
  /// @param isPreventingSleep  the sleep controller holds the machine awake at this moment
  /// @param thermalState       of the process, as the platform reports it
  GuardDecision evaluate(AppMode mode, const GuardSettings& settings, const PowerSnapshot& power,
                         LidState lidState, const ActivitySignal& signal, bool isPreventingSleep,
                         ThermalState thermalState, Timestamp now);

  /// The rule that gave the last decision; `watching` before the first one.
  GuardRule lastRule() const { return lastRule_; }

  /// A correction that evaluate() does not make by itself: work seen later than `now` counts as
  /// seen now. A host whose clock may be set back calls it before each evaluate(); otherwise the
  /// grace period would last until the clock has caught up.
  void forgetFuture(Timestamp now);

 private:
  Memory memory_;
  GuardRule lastRule_ = GuardRule::watching;
};

/// Whether a release that the decision wants happens at once or is held for a while.
namespace SleepReleasePolicy {

/// Release now, or hold since a time that the host hands back on the next tick.
struct Plan {
  std::optional<Timestamp> pendingSince = {};  ///< absent: release now

  ///@{
  /// The two kinds of plan, and which of them this is.
  static Plan releaseNow() { return {}; }
  static Plan hold(Timestamp since) { return {since}; }
  bool isHold() const { return pendingSince.has_value(); }
  ///@}

  friend bool operator==(const Plan&, const Plan&) = default;
};

/// Only `watching` while the lid-closed setting is engaged is delayed, by `delay` seconds counted
/// from `pendingSince` (absent: from `now`). The host clears its pending time when it releases or
/// when prevention is wanted again.
Plan planRelease(GuardStatus status, bool lidClosedEngaged, std::optional<Timestamp> pendingSince,
                 Timestamp now, double delay);

}  // namespace SleepReleasePolicy

}  // namespace wakelatch
#pragma GCC visibility pop
