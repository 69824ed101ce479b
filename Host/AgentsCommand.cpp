#include <iostream>
#include <string>
#include <vector>

#include "Host/AgentProfileJson.h"
#include "Host/Commands.h"
#include "Host/Folder.h"
#include "Host/SettingsFile.h"
#include "Host/Terminal.h"
#include "Host/UITextNotice.h"
#include "WakelatchCore/AccessibilityDetector.h"

namespace wakelatch {
namespace host {
namespace {

struct AgentsReport {
  std::vector<AgentProfile> agents;
  std::vector<std::string> targetApps;
  std::vector<std::string> uiTextOnly;
  std::string note;
};

}  // namespace
}  // namespace host

template <>
inline constexpr auto jsonFields<host::AgentsReport> = std::tuple{
    required("agents", &host::AgentsReport::agents),
    required("targetApps", &host::AgentsReport::targetApps),
    required("uiTextOnly", &host::AgentsReport::uiTextOnly),
    required("note", &host::AgentsReport::note),
};

namespace host {
namespace {

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) result += (result.empty() ? "" : ", ") + text;
  return result;
}

void printList(const char* title, const std::vector<std::string>& texts) {
  if (!texts.empty()) std::cout << "    " << title << printable(joined(texts)) << '\n';
}

/// @param isTextRead  this system lets UI text be read
std::string seenWorking(const AgentProfile& agent, bool isTextRead) {
  std::vector<std::string> ways;
  if (agent.trustsCPUSignal) ways.emplace_back("CPU load");
  if (!agent.sessionActivityGlobs.empty()) ways.emplace_back("session files");
  if (!agent.activePhrases.empty() && isTextRead) ways.emplace_back("UI text");
  if (!ways.empty()) return "seen working by " + joined(ways) + (ways.size() == 1 ? " only" : "");
  return agent.activePhrases.empty() ? "never seen working: no sign of its work is known yet"
                                     : "never seen working here: only UI text would show it";
}

void printAgent(const AgentProfile& agent, bool isTextRead) {
  std::cout << agent.displayName << "  (" << agent.id << ", " << rawValue(agent.kind) << ")\n";
  printList("programs       ", agent.cliProcessNames);
  printList("paths          ", agent.cliPathMarkers);
  printList("applications   ", agent.appBundleNames);
  printList("working texts  ", agent.activePhrases);
  printList("waiting texts  ", agent.idlePhrases);
  printList("session files  ", agent.sessionActivityGlobs);
  std::cout << "    " << seenWorking(agent, isTextRead) << '\n';
}

}  // namespace

ExitStatus runAgents(const AgentsOptions& options) {
  const GuardSettings settings = loadSettings(settingsFile());
  const std::vector<AgentProfile> watched = AgentResolver::make(settings).profiles();
  const AccessibilityDetector detector;
  const AgentsReport report{watched, settings.targetApps,
                            AccessibilityNotice::uiTextOnlyNames(watched),
                            accessibilityNote(detector, settings)};
  if (options.json) {
    std::cout << encode(report) << '\n';
    return ExitStatus::done;
  }
  for (const AgentProfile& agent : report.agents) printAgent(agent, detector.isSupported());
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
