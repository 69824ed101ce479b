#include "Host/Explanation.h"

#include <algorithm>
#include <cmath>

#include "Host/Terminal.h"
#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

std::string yesNo(bool value) {
  return value ? "yes" : "no";
}

/// Rounded up to whole seconds.
std::string seconds(double value) {
  return secondsText(std::ceil(value));
}

std::string percent(std::int64_t value) {
  return std::to_string(value) + " %";
}

std::string level(const PowerSnapshot& power) {
  return power.batteryPercent ? percent(*power.batteryPercent) : "unknown";
}

std::string sinceWork(const AgentStateMachine::Memory& memory, Timestamp now) {
  if (!memory.lastActiveSignalAt) return "no work seen";
  return "last active signal " + seconds(secondsBetween(*memory.lastActiveSignalAt, now)) + " ago";
}

/// For how long the agent of the strongest signal has been in its turn, by its own record.
std::string turnAge(const Observation& seen) {
  for (const AgentTurns& turns : seen.evidence.turns) {
    if (turns.appName != seen.strongest.appName || turns.state != TurnState::working) continue;
    return ", in a turn for " + seconds(std::max(0.0, secondsBetween(turns.since, seen.at)));
  }
  return {};
}

/// The rule that would apply if power and heat were these.
GuardRule ruleIf(const OneTick& tick, const PowerSnapshot& power, ThermalState heat) {
  AgentStateMachine machine(tick.memory);
  machine.evaluate(tick.mode, tick.settings, power, tick.seen.lidState, tick.seen.strongest,
                   tick.isPreventingSleep, heat, tick.seen.at);
  return machine.lastRule();
}

/// What it takes besides, with such power and heat, to be kept awake: the end of a sentence.
std::string besides(const OneTick& tick, const PowerSnapshot& power, ThermalState heat) {
  switch (ruleIf(tick, power, heat)) {
    case GuardRule::heat:
      return " and the heat is no longer critical" + besides(tick, power, ThermalState::nominal);
    case GuardRule::activeWork:
      return ", if the work goes on";
    case GuardRule::idleGrace:
      return ", if idle grace still lasts";
    case GuardRule::watching:
      return " and work is seen";
    default:
      return {};  // the mode alone keeps it awake
  }
}

std::vector<std::string> whatChangesNext(const OneTick& tick) {
  const Observation& seen = tick.seen;
  const double grace = tick.settings.profile(seen.power).idleGracePeriodSeconds;
  const std::int64_t cutoff = tick.settings.batteryProfile.batteryCutoffPercent;
  PowerSnapshot external = seen.power, charged = seen.power;
  external.isOnACPower = true;
  charged.batteryPercent = 100;
  const auto onExternalPower = [&] {
    return "kept awake as soon as external power is there" +
           besides(tick, external, seen.thermalState);
  };
  std::vector<std::string> next;
  switch (tick.rule) {
    case GuardRule::off:
      next.emplace_back("nothing until another mode is chosen");
      break;
    case GuardRule::batteryLevelUnknown:
      next.push_back(onExternalPower());
      if (cutoff < charged.batteryPercent) {
        next.push_back("kept awake as soon as the battery level is known to be above " +
                       percent(cutoff) + besides(tick, charged, seen.thermalState));
      }
      break;
    case GuardRule::batteryCutoff:
      next.push_back(onExternalPower());
      break;
    case GuardRule::heat:
      next.push_back("kept awake as soon as the heat is no longer critical" +
                     besides(tick, seen.power, ThermalState::nominal));
      break;
    case GuardRule::manual:
      next.emplace_back("kept awake until another mode is chosen or the heat is critical");
      break;
    case GuardRule::pluggedInUnlimited:
      next.emplace_back(
          "when external power goes, the battery's level and the agents' work decide");
      break;
    case GuardRule::activeWork:
      next.push_back("when the work ends, idle grace holds the machine awake for " +
                     seconds(grace));
      break;
    case GuardRule::idleGrace:
      next.push_back("idle grace ends in " +
                     seconds(grace - secondsBetween(*tick.memory.lastActiveSignalAt, seen.at)) +
                     " unless work is seen");
      break;
    case GuardRule::watching:
      next.emplace_back(ruleIf(tick, external, seen.thermalState) == GuardRule::pluggedInUnlimited
                            ? "kept awake as soon as work is seen or external power is there"
                            : "kept awake as soon as work is seen");
      break;
  }
  if (tick.decision.shouldPreventSleep && !seen.power.isOnACPower) {
    next.push_back("released at " + percent(cutoff) + " battery, now " + level(seen.power));
  }
  const auto& watch = tick.watch;
  if (tick.decision.status == GuardStatus::watching && watch && watch->held.releaseDueAt &&
      !watch->isStopped && !watch->isStuck(seen.at)) {
    next.push_back("the lid-closed keep-awake is released in " +
                   seconds(std::max(0.0, secondsBetween(seen.at, *watch->held.releaseDueAt))) +
                   " unless it is needed before");
  }
  return next;
}

}  // namespace

Explanation explain(const OneTick& tick) {
  const Observation& seen = tick.seen;
  const GuardSettings& settings = tick.settings;
  const AgentStateMachine::Memory& memory = tick.memory;
  const PowerSnapshot& power = seen.power;
  const GuardPowerProfile& profile = settings.profile(power);
  const std::string modeInput = "mode " + std::string(rawValue(tick.mode));
  const std::string source = power.isOnACPower ? "external power" : "battery power";
  const std::string lid = "lid " + std::string(rawValue(seen.lidState));

  Explanation result;
  result.status = makeStatusReport(tick);
  const auto add = [&result, &tick](GuardRule rule, const char* name, std::string inputs) {
    const char* outcome = rule < tick.rule    ? "does not apply"
                          : rule == tick.rule ? "applies"
                                              : "not reached";
    result.rules.push_back({static_cast<std::int64_t>(rule), name, std::move(inputs), outcome});
  };
  add(GuardRule::off, "Off", modeInput);
  add(GuardRule::batteryLevelUnknown, "Battery level unknown", source + ", level " + level(power));
  add(GuardRule::batteryCutoff, "Battery at cutoff",
      source + ", level " + level(power) + " against cutoff " +
          percent(settings.batteryProfile.batteryCutoffPercent) +
          ", holding the machine awake: " + yesNo(tick.isPreventingSleep));
  // The fourth step only chooses the settings of the others.
  result.rules.push_back({4, "Profile", source,
                          tick.rule < GuardRule::heat ? "not reached"
                          : power.isOnACPower         ? "plugged-in profile"
                                                      : "battery profile"});
  add(GuardRule::heat, "Heat",
      "thermal state " + std::string(rawValue(seen.thermalState)) + " against critical, " + lid);
  add(GuardRule::manual, "Manual", modeInput);
  add(GuardRule::pluggedInUnlimited, "Plugged-in unlimited",
      modeInput + ", " + source + ", unlimited keep-awake allowed: " +
          yesNo(settings.pluggedInProfile.allowUnlimitedKeepAwake));
  add(GuardRule::activeWork, "Active work",
      "strongest signal " + std::to_string(rawValue(seen.strongest.strength)) +
          " against 2 (weak)" +
          (seen.strongest.appName ? ", from " + *seen.strongest.appName : std::string()) +
          turnAge(seen));
  add(GuardRule::idleGrace, "Idle grace",
      sinceWork(memory, seen.at) + " against " + seconds(profile.idleGracePeriodSeconds));
  add(GuardRule::watching, "Watching",
      "work seen: " + yesNo(memory.hasSeenWork) + ", sleep already asked for: " +
          yesNo(memory.completionSleepIssued) + ", " + lid + ", sleep after completion: " +
          yesNo(profile.sleepAfterCompletion || tick.mode == AppMode::sleepAfterCurrentWork) +
          ", only with a closed lid: " + yesNo(profile.sleepOnlyIfLidClosed));
  result.next = whatChangesNext(tick);
  return result;
}

std::string explanationText(const Explanation& explanation) {
  std::string text;
  for (const RuleExplanation& rule : explanation.rules) {
    text += (rule.outcome == "applies" ? "-> " : "   ") + std::to_string(rule.number) +
            (rule.number < 10 ? ".  " : ". ") + rule.rule + ": " + rule.outcome + "\n        " +
            printable(rule.inputs) + '\n';
  }
  text += "\nDecision  " + printable(statusLine(explanation.status)) + '\n';
  for (const std::string& next : explanation.next) text += "Next      " + printable(next) + '\n';
  return text;
}

}  // namespace wakelatch::host
