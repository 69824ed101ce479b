// `agents`: what is known of the watched agents, from which file, and by which signs each is seen
// working; printed as text or as one JSON object. Reads settings and catalogue and writes nothing.
// Leaves with 1 when one of these files cannot be read.
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include "Host/AgentProfileJson.h"
#include "Host/AgentsFile.h"
#include "Host/Commands.h"
#include "Host/SettingsFile.h"
#include "Host/SupportDirectory.h"
#include "Host/Terminal.h"
#include "Host/UITextNotice.h"
#include "WakelatchCore/AccessibilityDetector.h"

namespace wakelatch {
namespace host {
namespace {

struct AgentsReport {
  std::vector<AgentProfile> agents;
  decltype(Agents::sources) sources;
  std::vector<std::string> targetApps;
  std::vector<std::string> uiTextOnly;
  std::string note;
};

}  // namespace
}  // namespace host

template <>
inline constexpr auto json::fields<host::AgentsReport> = std::tuple{
    json::required("agents", &host::AgentsReport::agents),
    json::required("sources", &host::AgentsReport::sources),
    json::required("targetApps", &host::AgentsReport::targetApps),
    json::required("uiTextOnly", &host::AgentsReport::uiTextOnly),
    json::required("note", &host::AgentsReport::note),
};

namespace host {
namespace {

void printList(const char* title, const std::vector<std::string>& texts) {
  if (!texts.empty()) std::cout << "    " << title << printable(joined(texts)) << '\n';
}

/// @param isTextRead  this system lets UI text be read
std::string seenWorking(const AgentProfile& agent, bool isTextRead) {
  std::vector<std::string> ways;
  if (agent.trustsCPUSignal) ways.emplace_back("CPU load");
  if (!agent.turnRecords.empty()) ways.emplace_back("turn records");
  if (!agent.oneShotArguments.empty()) ways.emplace_back("one-shot runs");
  if (!agent.sessionActivityGlobs.empty()) ways.emplace_back("session files");
  if (!agent.activePhrases.empty() && isTextRead) ways.emplace_back("UI text");
  if (!ways.empty()) return "seen working by " + joined(ways) + (ways.size() == 1 ? " only" : "");
  return agent.activePhrases.empty() ? "never seen working: no sign of its work is known yet"
                                     : "never seen working here: only UI text would show it";
}

/// @param sources  of the agent's fields
void printAgent(const AgentProfile& agent, const std::map<std::string, std::string>& sources,
                bool isTextRead) {
  std::cout << printable(agent.displayName) << "  (" << printable(agent.id) << ", "
            << rawValue(agent.kind) << ")\n";
  printList("programs       ", agent.cliProcessNames);
  printList("paths          ", agent.cliPathMarkers);
  printList("applications   ", agent.appBundleNames);
  printList("working texts  ", agent.activePhrases);
  printList("waiting texts  ", agent.idlePhrases);
  for (const TurnRecordFormat& format : agent.turnRecords) {
    printList("turn records   ", format.globs);
  }
  printList("session files  ", agent.sessionActivityGlobs);
  printList("one-shot runs  ", agent.oneShotArguments);
  std::cout << "    " << seenWorking(agent, isTextRead) << '\n';
  std::map<std::string, std::vector<std::string>> fieldsByFile;
  for (const auto& [field, file] : sources) fieldsByFile[file].push_back(field);
  for (const auto& [file, fields] : fieldsByFile) {
    printList(("from " + printable(file) + ": ").c_str(), fields);
  }
}

}  // namespace

ExitStatus runCommand(const AgentsOptions& options, Tools& /*tools*/) {
  const GuardSettings settings = loadSettings(settingsFile());
  const Agents known = loadAgents(agentsFiles());
  const std::vector<AgentProfile> watched = known.profiles.watched(settings).profiles();
  const AccessibilityDetector detector;
  AgentsReport report{watched,
                      {},
                      settings.targetApps,
                      AccessibilityNotice::uiTextOnlyNames(watched),
                      accessibilityNote(detector, settings, known.profiles)};
  for (const AgentProfile& agent : watched) {
    const auto sources = known.sources.find(agent.id);
    if (sources != known.sources.end()) report.sources.insert(*sources);
  }
  if (options.json) {
    std::cout << encode(report) << '\n';
    return ExitStatus::done;
  }
  for (const AgentProfile& agent : report.agents) {
    printAgent(agent, report.sources[agent.id], detector.isSupported());
  }
  for (const std::string& target : report.targetApps) {
    std::cout << printable(target) << "  (your own target)\n"
              << "    seen working by CPU load"
              << (detector.isSupported() ? ", UI text\n" : " only\n");
  }
  std::cout << "\nAccessibility permission\n    " << printable(report.note) << '\n';
  if (detector.isSupported()) printList("Seen only through their UI text: ", report.uiTextOnly);
  return ExitStatus::done;
}

}  // namespace host
}  // namespace wakelatch
