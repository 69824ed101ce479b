// The decision engine: turns one tick's observations into a GuardDecision, and plans the release of
// a lid-closed keep-awake.
#pragma once

#include <optional>

#include "Platform/Clock.h"
#include "WakelatchCore/Models.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// The rules of AgentStateMachine::evaluate(). Each value is the rule's place in the order in which
/// they are tried. No rule has the value 4: that step only selects the power profile for the rules
/// that follow.
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
  /// The state kept between ticks.
  struct Memory {
    std::optional<Timestamp> lastActiveSignalAt = {};  ///< the idle grace counts from here
    bool hasSeenWork = false;                          ///< since the last reset
    /// The machine was put to sleep after the work seen; this happens once until new work is seen.
    bool completionSleepIssued = false;
  };

  AgentStateMachine() = default;
  /// Continues with the state of another instance.
  explicit AgentStateMachine(const Memory& memory) : memory_(memory) {}
  AgentStateMachine(const AgentStateMachine&) = delete;
  AgentStateMachine& operator=(const AgentStateMachine&) = delete;

  /// A copy of the state, for display, for storage or for another instance.
  Memory memory() const { return memory_; }

  /// Clears the state: no work was seen.
  void reset();
  /// Records that work was seen at `time`.
  void markActive(Timestamp time);
  /// Records that work ended at `time`. The grace period (seconds) then counts as over one second
  /// before `time`, so the next evaluation without an active signal skips the idle grace.
  void markFinished(Timestamp time, double gracePeriod);

  /// Decides by the first rule that applies, in the order of GuardRule.
  /// @param signal             the strongest signal of the tick
  /// @param isPreventingSleep  whether the sleep controller keeps the machine awake at this moment
  /// @param thermalState       as the platform reports it
  GuardDecision evaluate(AppMode mode, const GuardSettings& settings, const PowerSnapshot& power,
                         LidState lidState, const ActivitySignal& signal, bool isPreventingSleep,
                         ThermalState thermalState, Timestamp now);

  /// The rule that gave the last decision; `watching` before the first one.
  GuardRule lastRule() const { return lastRule_; }

  /// Moves a last active signal that is later than `now` to `now`. A host whose clock may be set
  /// back calls this before each evaluate(), which does not do it: otherwise the grace period would
  /// last until the clock has caught up.
  void forgetFuture(Timestamp now);

 private:
  Memory memory_;
  GuardRule lastRule_ = GuardRule::watching;
};

/// Decides whether keep-awake is released at once or after a delay. Pure functions, callable from
/// any thread.
namespace SleepReleasePolicy {

/// Either release now, or hold; the host passes `pendingSince` to planRelease() on the next tick.
struct Plan {
  std::optional<Timestamp> pendingSince = {};  ///< absent: release now

  ///@{
  /// Make and tell apart the two kinds of plan.
  static Plan releaseNow() { return {}; }
  static Plan hold(Timestamp since) { return {since}; }
  bool isHold() const { return pendingSince.has_value(); }
  ///@}

  friend bool operator==(const Plan&, const Plan&) = default;
};

/// The plan for a tick that does not want sleep prevention. The release is delayed only when
/// `status` is `watching` and the lid-closed setting is engaged: by `delay` seconds counted from
/// `pendingSince` (absent: from `now`). The host clears its pending time when it releases, or when
/// prevention is wanted again.
Plan planRelease(GuardStatus status, bool lidClosedEngaged, std::optional<Timestamp> pendingSince,
                 Timestamp now, double delay);

}  // namespace SleepReleasePolicy

}  // namespace wakelatch
#pragma GCC visibility pop
