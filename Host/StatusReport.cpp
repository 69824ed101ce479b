#include "Host/StatusReport.h"

#include <algorithm>
#include <cstdio>
#include <map>

#include "Host/Terminal.h"
#include "Host/WatchText.h"

namespace wakelatch::host {
namespace {

std::string counted(std::int64_t count, const char* one, const char* many) {
  return std::to_string(count) + ' ' + (count == 1 ? one : many);
}

std::string describe(const ActivitySignal& signal) {
  std::string text = signal.reason;
  if (signal.sessionCount) text += ", " + counted(*signal.sessionCount, "session", "sessions");
  return text;
}

/// "31.5 % against 8.0 %".
std::string load(const AgentProcesses& agent) {
  char text[64];
  std::snprintf(text, sizeof text, "%.1f %% against %.1f %%", agent.cpuPercent,
                agent.thresholdPercent);
  return std::string(text) + (agent.trustsCPU ? "" : " (says nothing for this agent)");
}

constexpr const char* unseen = " (its process was not seen for 90 s)";

/// Every agent with evidence, believed or not, by name.
std::vector<AgentEvidence> evidencePerAgent(const ActivityDetector::Evidence& evidence) {
  std::map<std::string, AgentEvidence> agents;
  const auto at = [&](const ActivitySignal& signal) -> AgentEvidence& {
    AgentEvidence& entry = agents[signal.appName.value_or("")];
    entry.agent = signal.appName.value_or("");
    return entry;
  };
  const auto addAll = [&](const char* source, const ActivityDetector::Findings& findings) {
    for (const ActivitySignal& signal : findings.kept) {
      at(signal).seen.push_back(source + describe(signal));
    }
    for (const ActivitySignal& signal : findings.dropped) {
      at(signal).notBelieved.push_back(source + describe(signal) + unseen);
    }
  };
  for (const AgentProcesses& agent : evidence.process) {
    at(agent.signal).seen.push_back("process: " + describe(agent.signal) + ", CPU " + load(agent));
  }
  addAll("UI text: ", evidence.accessibility);
  addAll("session files: ", evidence.session);

  std::vector<AgentEvidence> result;
  result.reserve(agents.size());
  for (auto& [name, entry] : agents) result.push_back(std::move(entry));
  return result;
}

std::string strengthName(SignalStrength strength) {
  switch (strength) {
    case SignalStrength::none:
      return "nothing";
    case SignalStrength::presence:
      return "present";
    case SignalStrength::weak:
      return "working?";
    case SignalStrength::strong:
      return "working";
  }
  return {};
}

std::string padded(std::string text, std::size_t width) {
  if (text.size() < width) text.append(width - text.size(), ' ');
  return text + ' ';
}

}  // namespace

StatusReport makeStatusReport(AppMode mode, const Observation& seen,
                              const GuardDecision& decision) {
  StatusReport report;
  report.mode = mode;
  report.power = seen.power;
  report.signals = seen.evidence.merged;
  report.lidState = seen.lidState;
  report.thermalState = seen.thermalState;
  report.decision = decision;
  report.evidence = evidencePerAgent(seen.evidence);
  report.uiTextNotice = seen.uiTextNotice;
  return report;
}

std::string statusTable(const StatusReport& report, Timestamp now) {
  std::string text;
  const auto row = [&text](const char* title, const std::string& value) {
    text += padded(title, 10) + printable(value) + '\n';
  };
  row("Mode", std::string(displayName(report.mode)));
  if (report.evidence.empty()) row("Agents", "none seen");
  const char* title = "Agents";
  for (const AgentEvidence& agent : report.evidence) {
    const auto signal =
        std::find_if(report.signals.begin(), report.signals.end(),
                     [&](const ActivitySignal& s) { return s.appName == agent.agent; });
    row(std::exchange(title, ""),
        padded(agent.agent, 20) +
            (signal == report.signals.end() ? "not believed" : strengthName(signal->strength)));
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
