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

GuardDecision AgentStateMachine::evaluate(AppMode mode, const GuardSettings& settings,
                                          const PowerSnapshot& power, LidState lidState,
                                          const ActivitySignal& signal, bool isPreventingSleep,
                                          ThermalState thermalState, Timestamp now) {
  const std::int64_t cutoff = settings.batteryProfile.batteryCutoffPercent;
  const bool isWarning = !power.isOnACPower && power.batteryPercent &&
                         *power.batteryPercent <= settings.batteryProfile.warningPercent &&
                         *power.batteryPercent > cutoff;

  const auto decide = [&](GuardRule rule, GuardDecision decision) {
    lastRule_ = rule;
    decision.detectedAppName = signal.appName;
    return decision;
  };

  // 1. Off.
  if (mode == AppMode::off) {
    reset();
    return decide(
        GuardRule::off,
        {.status = GuardStatus::off, .reason = "Lumenhold is off", .isBatteryWarning = isWarning});
  }

  // 2. On battery with an unknown level.
  if (!power.isOnACPower && !power.batteryPercent) {
    return decide(
        GuardRule::batteryLevelUnknown,
        {.status = GuardStatus::watching,
         .reason = "Battery level unavailable — releasing keep-awake to protect the battery"});
  }

  // 3. Battery at cutoff.
  if (!power.isOnACPower && *power.batteryPercent <= cutoff) {
    if (isPreventingSleep) memory_.completionSleepIssued = true;
    return decide(GuardRule::batteryCutoff, {.status = GuardStatus::batterySafety,
                                             .shouldSleepNow = isPreventingSleep,
                                             .reason = "Battery is at or below cutoff"});
  }

  // 4. The rules below use the profile of the power source.
  const GuardPowerProfile& profile = settings.profile(power);

  // 5. Heat.
  if (thermalState == ThermalState::critical) {
    const bool sleepNow = isPreventingSleep && lidState == LidState::closed;
    if (sleepNow) memory_.completionSleepIssued = true;
    return decide(
        GuardRule::heat,
        {.status = GuardStatus::thermalSafety,
         .shouldSleepNow = sleepNow,
         .reason = "Thermal pressure is critical — releasing keep-awake so the Mac can cool down",
         .isBatteryWarning = isWarning});
  }

  // 6. Manual.
  if (mode == AppMode::manualKeepAwake) {
    memory_.completionSleepIssued = false;
    return decide(GuardRule::manual, {.status = GuardStatus::keepingAwake,
                                      .shouldPreventSleep = true,
                                      .reason = "Manual keep-awake mode is enabled",
                                      .isBatteryWarning = isWarning});
  }

  // 7. Plugged-in unlimited.
  if (mode == AppMode::pluggedInUnlimited && power.isOnACPower &&
      settings.pluggedInProfile.allowUnlimitedKeepAwake) {
    memory_.completionSleepIssued = false;
    return decide(GuardRule::pluggedInUnlimited,
                  {.status = GuardStatus::pluggedInUnlimited,
                   .shouldPreventSleep = true,
                   .reason = "AC power is connected and plugged-in unlimited mode is enabled"});
  }

  // 8. Active work.
  if (isActive(signal.strength)) {
    markActive(now);
    return decide(GuardRule::activeWork, {.status = GuardStatus::keepingAwake,
                                          .shouldPreventSleep = true,
                                          .reason = signal.reason,
                                          .isBatteryWarning = isWarning});
  }

  // 9. Idle grace.
  if (memory_.lastActiveSignalAt &&
      secondsBetween(*memory_.lastActiveSignalAt, now) < profile.idleGracePeriodSeconds) {
    return decide(GuardRule::idleGrace,
                  {.status = GuardStatus::idleGrace,
                   .shouldPreventSleep = true,
                   .reason = "No current active signal; waiting through idle grace",
                   .isBatteryWarning = isWarning});
  }

  // 10. Watching.
  const bool mayComplete =
      lidState == LidState::closed ||
      ((profile.sleepAfterCompletion || mode == AppMode::sleepAfterCurrentWork) &&
       !profile.sleepOnlyIfLidClosed);
  const bool sleepNow = memory_.hasSeenWork && !memory_.completionSleepIssued && mayComplete;
  if (sleepNow) memory_.completionSleepIssued = true;
  return decide(GuardRule::watching,
                {.status = GuardStatus::watching,
                 .shouldSleepNow = sleepNow,
                 .reason = signal.strength == SignalStrength::presence
                               ? "Target app is present but no active-work signal was found"
                               : "No active agent signal",
                 .isBatteryWarning = isWarning});
}

void AgentStateMachine::forgetFuture(Timestamp now) {
  if (memory_.lastActiveSignalAt > now) memory_.lastActiveSignalAt = now;
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
