#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch {

void AgentStateMachine::reset() {
  memory_ = {};
}

void AgentStateMachine::markActive(Timestamp time) {
  memory_ = {.lastActiveSignalAt = time, .hasSeenWork = true, .completionSleepIssued = false};
}

void AgentStateMachine::markFinished(Timestamp time, double gracePeriod) {
  markActive(after(time, -gracePeriod - 1.0));
}

void AgentStateMachine::forgetFuture(Timestamp now) {
  if (memory_.lastActiveSignalAt > now) memory_.lastActiveSignalAt = now;
}

GuardDecision AgentStateMachine::evaluate(AppMode mode, const GuardSettings& settings,
                                          const PowerSnapshot& power, LidState lidState,
                                          const ActivitySignal& signal, bool isPreventingSleep,
                                          ThermalState thermalState, Timestamp now) {
  const std::int64_t cutoff = settings.batteryProfile.batteryCutoffPercent;
  const bool warning = !power.isOnACPower && power.batteryPercent &&
                       *power.batteryPercent <= settings.batteryProfile.warningPercent &&
                       *power.batteryPercent > cutoff;

  const auto decision = [this, &signal](GuardRule rule, GuardStatus status, bool prevent,
                                        bool sleepNow, const std::string& reason,
                                        bool batteryWarning) {
    lastRule_ = rule;
    return GuardDecision{status, prevent, sleepNow, signal.appName, reason, batteryWarning};
  };

  // 1. Off.
  if (mode == AppMode::off) {
    reset();
    return decision(GuardRule::off, GuardStatus::off, false, false, "Lumenhold is off", warning);
  }

  // 2. On battery with an unknown level.
  if (!power.isOnACPower && !power.batteryPercent) {
    return decision(GuardRule::batteryLevelUnknown, GuardStatus::watching, false, false,
                    "Battery level unavailable — releasing keep-awake to protect the battery",
                    false);
  }

  // 3. Battery at cutoff.
  if (!power.isOnACPower && *power.batteryPercent <= cutoff) {
    if (isPreventingSleep) memory_.completionSleepIssued = true;
    return decision(GuardRule::batteryCutoff, GuardStatus::batterySafety, false, isPreventingSleep,
                    "Battery is at or below cutoff", false);
  }

  // 4. The profile of the rules below.
  const GuardPowerProfile& profile = settings.profile(power);

  // 5. Heat.
  if (thermalState == ThermalState::critical) {
    const bool sleepNow = isPreventingSleep && lidState == LidState::closed;
    if (sleepNow) memory_.completionSleepIssued = true;
    return decision(GuardRule::heat, GuardStatus::thermalSafety, false, sleepNow,
                    "Thermal pressure is critical — releasing keep-awake so the Mac can cool down",
                    warning);
  }

  // 6. Manual.
  if (mode == AppMode::manualKeepAwake) {
    memory_.completionSleepIssued = false;
    return decision(GuardRule::manual, GuardStatus::keepingAwake, true, false,
                    "Manual keep-awake mode is enabled", warning);
  }

  // 7. Plugged-in unlimited.
  if (mode == AppMode::pluggedInUnlimited && power.isOnACPower &&
      settings.pluggedInProfile.allowUnlimitedKeepAwake) {
    memory_.completionSleepIssued = false;
    return decision(GuardRule::pluggedInUnlimited, GuardStatus::pluggedInUnlimited, true, false,
                    "AC power is connected and plugged-in unlimited mode is enabled", false);
  }

  // 8. Active work.
  if (isActive(signal.strength)) {
    markActive(now);
    return decision(GuardRule::activeWork, GuardStatus::keepingAwake, true, false, signal.reason,
                    warning);
  }

  // 9. Idle grace.
  if (memory_.lastActiveSignalAt &&
      secondsBetween(*memory_.lastActiveSignalAt, now) < profile.idleGracePeriodSeconds) {
    return decision(GuardRule::idleGrace, GuardStatus::idleGrace, true, false,
                    "No current active signal; waiting through idle grace", warning);
  }

  // 10. Watching.
  const bool mayComplete =
      lidState == LidState::closed ||
      ((profile.sleepAfterCompletion || mode == AppMode::sleepAfterCurrentWork) &&
       !profile.sleepOnlyIfLidClosed);
  const bool sleepNow = memory_.hasSeenWork && !memory_.completionSleepIssued && mayComplete;
  if (sleepNow) memory_.completionSleepIssued = true;
  return decision(GuardRule::watching, GuardStatus::watching, false, sleepNow,
                  signal.strength == SignalStrength::presence
                      ? "Target app is present but no active-work signal was found"
                      : "No active agent signal",
                  warning);
}

SleepReleasePolicy::Plan SleepReleasePolicy::planRelease(GuardStatus status, bool lidClosedEngaged,
                                                         std::optional<Timestamp> pendingSince,
                                                         Timestamp now, double delay) {
  if (status != GuardStatus::watching || !lidClosedEngaged) return Plan::releaseNow();
  const Timestamp start = pendingSince.value_or(now);
  if (secondsBetween(start, now) >= delay) return Plan::releaseNow();
  return Plan::hold(start);
}

}  // namespace wakelatch
