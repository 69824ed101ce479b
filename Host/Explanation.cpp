#include "Host/Explanation.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace wakelatch::host {
namespace {

std::string yesNo(bool value) {
  return value ? "yes" : "no";
}

std::string seconds(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.0f s", std::ceil(value));
  return text;
}

std::string level(const PowerSnapshot& power) {
  return power.batteryPercent ? std::to_string(*power.batteryPercent) + " %" : "unknown";
}

std::string percent(std::int64_t value) {
  return std::to_string(value) + " %";
}

/// The number of the rule that gave this decision. The engine tries them in this order; only the
/// statuses that two rules share need a second look.
std::int64_t ruleOf(const GuardDecision& decision, AppMode mode, const PowerSnapshot& power) {
  switch (decision.status) {
    case GuardStatus::off:
      return 1;
    case GuardStatus::watching:
      return !power.isOnACPower && !power.batteryPercent ? 2 : 10;
    case GuardStatus::batterySafety:
      return 3;
    case GuardStatus::thermalSafety:
      return 5;
    case GuardStatus::keepingAwake:
      return mode == AppMode::manualKeepAwake ? 6 : 8;
    case GuardStatus::pluggedInUnlimited:
      return 7;
    case GuardStatus::idleGrace:
      return 9;
  }
  return 10;
}

std::string sinceWork(const AgentStateMachine::Memory& memory, Timestamp now) {
  if (!memory.lastActiveSignalAt) return "no work seen";
  return "last active signal " + seconds(secondsBetween(*memory.lastActiveSignalAt, now)) + " ago";
}

std::vector<std::string> whatChangesNext(const OneTick& tick) {
  const auto& [settings, mode, isWatchRunning, watch, isPreventingSleep, memory, seen, decision] =
      tick;
  const GuardPowerProfile& profile = settings.profile(seen.power);
  std::vector<std::string> next;
  switch (decision.status) {
    case GuardStatus::off:
      next.emplace_back("nothing until another mode is chosen");
      return next;
    case GuardStatus::idleGrace:
      next.push_back("idle grace ends in " +
                     seconds(profile.idleGracePeriodSeconds -
                             secondsBetween(*memory.lastActiveSignalAt, seen.at)) +
                     " unless work is seen");
      break;
    case GuardStatus::keepingAwake:
      if (isActive(seen.strongest.strength)) {
        next.push_back("when the work ends, idle grace holds the machine awake for " +
                       seconds(profile.idleGracePeriodSeconds));
      }
      break;
    case GuardStatus::watching:
    case GuardStatus::batterySafety:
    case GuardStatus::thermalSafety:
      next.emplace_back(decision.status == GuardStatus::watching
                            ? "kept awake as soon as work is seen"
                            : "kept awake again when that is over and work is seen");
      break;
    case GuardStatus::pluggedInUnlimited:
      next.emplace_back("ends when external power goes");
      break;
  }
  if (watch && watch->held.releaseDueAt) {
    next.push_back("the lid-closed keep-awake is released in " +
                   seconds(std::max(0.0, secondsBetween(seen.at, *watch->held.releaseDueAt))) +
                   " unless work is seen");
  }
  if (!seen.power.isOnACPower && seen.power.batteryPercent && decision.shouldPreventSleep) {
    next.push_back("released at " + percent(settings.batteryProfile.batteryCutoffPercent) +
                   " battery, now " + level(seen.power));
  }
  return next;
}

}  // namespace

Explanation explain(const OneTick& tick) {
  const auto& [settings, mode, isWatchRunning, watch, isPreventingSleep, memory, seen, decision] =
      tick;
  const PowerSnapshot& power = seen.power;
  const GuardPowerProfile& profile = settings.profile(power);
  const std::string modeInput = "mode " + std::string(rawValue(mode));
  const std::string source = power.isOnACPower ? "external power" : "battery power";
  const std::string lid = "lid " + std::string(rawValue(seen.lidState));

  Explanation result;
  result.status = makeStatusReport(mode, seen, decision);
  result.status.watch = watch;
  result.status.isWatchRunning = isWatchRunning;
  const std::int64_t applied = ruleOf(decision, mode, power);
  const auto add = [&result, applied](std::int64_t number, const char* rule, std::string inputs) {
    const char* outcome = number < applied    ? "does not apply"
                          : number == applied ? "applies"
                                              : "not reached";
    result.rules.push_back({number, rule, std::move(inputs), outcome});
  };
  add(1, "Off", modeInput);
  add(2, "Battery level unknown", source + ", level " + level(power));
  add(3, "Battery at cutoff",
      source + ", level " + level(power) + " against cutoff " +
          percent(settings.batteryProfile.batteryCutoffPercent) +
          ", holding the machine awake: " + yesNo(isPreventingSleep));
  // The fourth step only chooses the settings of the others.
  result.rules.push_back({4, "Profile", source,
                          applied < 4         ? "not reached"
                          : power.isOnACPower ? "plugged-in profile"
                                              : "battery profile"});
  add(5, "Heat",
      "thermal state " + std::string(rawValue(seen.thermalState)) + " against critical, " + lid);
  add(6, "Manual", modeInput);
  add(7, "Plugged-in unlimited",
      modeInput + ", " + source + ", unlimited keep-awake allowed: " +
          yesNo(settings.pluggedInProfile.allowUnlimitedKeepAwake));
  add(8, "Active work",
      "strongest signal " + std::to_string(rawValue(seen.strongest.strength)) +
          " against 2 (weak)" +
          (seen.strongest.appName ? ", from " + *seen.strongest.appName : std::string()));
  add(9, "Idle grace",
      sinceWork(memory, seen.at) + " against " + seconds(profile.idleGracePeriodSeconds));
  add(10, "Watching",
      "work seen: " + yesNo(memory.hasSeenWork) + ", sleep already asked for: " +
          yesNo(memory.completionSleepIssued) + ", " + lid + ", sleep after completion: " +
          yesNo(profile.sleepAfterCompletion || mode == AppMode::sleepAfterCurrentWork) +
          ", only with a closed lid: " + yesNo(profile.sleepOnlyIfLidClosed));
  result.next = whatChangesNext(tick);
  return result;
}

}  // namespace wakelatch::host
