#include "Host/StatusReport.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <utility>

#include "Host/Terminal.h"
#include "Host/TimeText.h"
#include "Host/WatchText.h"

namespace wakelatch::host {
namespace {

std::string describe(const ActivitySignal& signal) {
  std::string text = signal.reason;
  if (signal.sessionCount) text += ", " + counted(*signal.sessionCount, "session");
  return text;
}

/// "31.5 % against 8.0 %".
std::string load(const AgentProcesses& agent) {
  char text[64];
  std::snprintf(text, sizeof text, "%.1f %% against %.1f %%", agent.cpuPercent,
                agent.thresholdPercent);
  return std::string(text) + (agent.trustsCPU ? "" : " (says nothing for this agent)");
}

/// Why evidence of an agent is not believed.
std::string whyNot(const Observation& seen, const ActivitySignal& signal) {
  const auto& turns = seen.evidence.turns;
  const bool isRecorded = std::any_of(turns.begin(), turns.end(), [&](const AgentTurns& turn) {
    return turn.appName == signal.appName && turn.state && turn.state != TurnState::unclear;
  });
  return isRecorded ? " (its own record says that it is in no turn)"
                    : " (its process is not there)";
}

/// "in a turn, for 31 s".
std::string describe(const AgentTurns& turns, double age) {
  const char* state = turns.state == TurnState::working   ? "in a turn"
                      : turns.state == TurnState::waiting ? "waits for you"
                                                          : "in no turn";
  return std::string(state) + ", for " + secondsText(age) +
         (turns.tellsOfEverySession ? "" : "; other sessions have no record");
}

/// What is known of the agent that a signal is about, or null.
const KnownAgent* knownAgent(const Observation& seen, const ActivitySignal& signal) {
  const auto found = seen.agents.find(signal.appName.value_or(""));
  return found == seen.agents.end() ? nullptr : &found->second;
}

/// Every agent with evidence, believed or not, by name.
std::vector<AgentEvidence> evidencePerAgent(const Observation& seen) {
  std::map<std::string, AgentEvidence> agents;
  const auto at = [&](const ActivitySignal& signal) -> AgentEvidence& {
    AgentEvidence& entry = agents[signal.appName.value_or("")];
    entry.agent = signal.appName.value_or("");
    if (const KnownAgent* known = knownAgent(seen, signal)) entry.id = known->id;
    return entry;
  };
  const auto addAll = [&](const char* source, const ActivityDetector::Findings& findings,
                          const auto& addFigures) {
    for (const bool isBelieved : {true, false}) {
      for (const ActivitySignal& signal : isBelieved ? findings.kept : findings.dropped) {
        AgentEvidence& entry = at(signal);
        (isBelieved ? entry.seen : entry.notBelieved)
            .push_back(source + describe(signal) + (isBelieved ? "" : whyNot(seen, signal)));
        addFigures(entry, signal, isBelieved);
      }
    }
  };
  for (const AgentProcesses& agent : seen.evidence.process) {
    if (agent.signal.strength == SignalStrength::none) continue;
    AgentEvidence& entry = at(agent.signal);
    entry.seen.push_back("process: " + describe(agent.signal) + ", CPU " + load(agent));
    if (!std::isfinite(agent.cpuPercent))
      continue;  // a sum of absurd loads, which JSON cannot hold
    entry.process = {.cpuPercent = agent.cpuPercent,
                     .thresholdPercent = agent.thresholdPercent,
                     .trustsCPU = agent.trustsCPU,
                     .sessionCount = agent.signal.sessionCount};
  }
  for (const AgentTurns& turns : seen.evidence.turns) {
    if (!turns.state || turns.state == TurnState::unclear) continue;
    AgentEvidence& entry = at({.appName = turns.appName});
    const double age = std::max(0.0, secondsBetween(turns.since, seen.at));
    entry.seen.push_back("turn record: " + describe(turns, age));
    entry.turn = {
        .state = *turns.state, .ageSeconds = age, .tellsOfEverySession = turns.tellsOfEverySession};
  }
  addAll("UI text: ", seen.evidence.accessibility,
         [](AgentEvidence& entry, const ActivitySignal& signal, bool isBelieved) {
           entry.uiText = {.strength = signal.strength,
                           .matchedText = signal.matchedText,
                           .isBelieved = isBelieved};
         });
  addAll("session files: ", seen.evidence.session,
         [&](AgentEvidence& entry, const ActivitySignal& signal, bool isBelieved) {
           const KnownAgent* known = knownAgent(seen, signal);
           if (known == nullptr || !known->newestSessionFile) return;
           const double age = std::max(0.0, secondsBetween(*known->newestSessionFile, seen.at));
           entry.sessionFile = {.ageSeconds = age, .isBelieved = isBelieved};
         });

  std::vector<AgentEvidence> result;
  result.reserve(agents.size());
  for (auto& [name, entry] : agents) result.push_back(std::move(entry));
  return result;
}

}  // namespace

StatusReport makeStatusReport(const OneTick& tick) {
  const Observation& seen = tick.seen;
  StatusReport report;
  report.at = platform::iso8601Milliseconds(seen.at);
  report.mode = tick.mode;
  report.power = seen.power;
  for (const ActivitySignal& signal : seen.evidence.merged) {
    const KnownAgent* known = knownAgent(seen, signal);
    report.signals.push_back({signal, known == nullptr ? std::nullopt : std::optional(known->id)});
  }
  report.lidState = seen.lidState;
  report.thermalState = seen.thermalState;
  report.decision = tick.decision;
  report.evidence = evidencePerAgent(seen);
  report.uiTextNotice = seen.uiTextNotice;
  report.isWatchRunning = tick.isWatchRunning;
  report.watch = tick.watch;
  return report;
}

std::optional<std::string> TickLines::next(StatusReport report, Timestamp at) {
  if (isJSON_) {
    const bool isTold = uiTextNotice_ == report.uiTextNotice;
    uiTextNotice_ = report.uiTextNotice;
    if (isTold) report.uiTextNotice.reset();
    return encode(report, DateCoding::iso8601);
  }
  GuardDecision decision = report.decision;
  decision.shouldSleepNow = false;  // told by a notice
  // A reason may count seconds and so differ on every tick, though the decision is the same.
  std::erase_if(decision.reason, [](char c) { return c >= '0' && c <= '9'; });
  if (decision_ == decision) return std::nullopt;
  decision_ = std::move(decision);
  return localTime(at) + ' ' + printable(statusLine(report));
}

SignalStrength strengthOf(const AgentEvidence& agent, const StatusReport& report) {
  const auto signal =
      std::find_if(report.signals.begin(), report.signals.end(),
                   [&](const ActivitySignal& s) { return s.appName == agent.agent; });
  return signal == report.signals.end() ? SignalStrength::none : signal->strength;
}

std::string_view strengthWord(SignalStrength strength) {
  switch (strength) {
    case SignalStrength::none:
      return "not believed";
    case SignalStrength::presence:
      return "present";
    case SignalStrength::weak:
      return "working?";
    case SignalStrength::strong:
      return "working";
  }
  return {};
}

std::string statusTable(const StatusReport& report, Timestamp now) {
  std::string text;
  const auto row = [&text](const char* title, const std::string& value) {
    text += padded(title, 11) + printable(value) + '\n';
  };
  row("Mode", std::string(displayName(report.mode)));
  if (report.evidence.empty()) row("Agents", "none seen");
  const char* title = "Agents";
  for (const AgentEvidence& agent : report.evidence) {
    row(std::exchange(title, ""), padded(printable(agent.agent), 20) + ' ' +
                                      std::string(strengthWord(strengthOf(agent, report))));
    for (const std::string& line : agent.seen) row("", "  " + line);
    for (const std::string& line : agent.notBelieved) row("", "  not believed: " + line);
  }
  if (report.uiTextNotice) row("UI text", *report.uiTextNotice);
  row("Power", report.power.displayName());
  row("Lid", std::string(displayName(report.lidState)));
  row("Heat", std::string(displayName(report.thermalState)));
  row("Decision", statusLine(report));
  row("", std::string("keep awake: ") + (report.decision.shouldPreventSleep ? "yes" : "no") +
              ", sleep now: " + (report.decision.shouldSleepNow ? "yes" : "no"));
  const auto& watch = report.watch;
  row("Watch", watch ? "process " + std::to_string(watch->pid) + ", mode " +
                           std::string(displayName(watch->mode)) + ": " + describe(*watch, now)
               : report.isWatchRunning ? "starting"
                                       : "not running");
  return text;
}

std::string statusLine(const StatusReport& report) {
  const GuardDecision& decision = report.decision;
  std::string text = std::string(displayName(decision.status)) + ": " + decision.reason;
  if (decision.isBatteryWarning) text += " (battery is low: " + report.power.displayName() + ")";
  return text;
}

}  // namespace wakelatch::host
