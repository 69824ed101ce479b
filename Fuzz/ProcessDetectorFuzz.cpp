// Agents in arbitrary graphs of parent links, against the signals by their definition. The input is
// one process per line, of four characters: pid, parent, quarters of CPU percent, command, each
// taken modulo a small number ('0' is 0).
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "WakelatchCore/AgentAppName.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/ProcessDetector.h"

using namespace wakelatch;
using fuzz::require;

namespace {

using Processes = std::vector<ProcessSnapshot>;

struct Command {
  const char *path, *arguments;
};
constexpr Command commands[] = {
    {"sh", ""},
    {"claude", ""},
    {"/usr/bin/node", "node /opt/codex"},
    {"/Applications/Claude.app/Contents/MacOS/Claude", ""},  // its load does not count
    {"/opt/foo-bar", ""},                                    // a target
    {"clauder", ""},  // a target of the same name as that application
    {"/usr/bin/Foo Helper", ""},
    {"/Applications/Other.app/codex", ""},  // in a bundle of no agent
};
constexpr double threshold = 1;

GuardSettings settings() {
  GuardSettings settings;
  settings.batteryProfile.cpuThresholdPercent = threshold;
  settings.pluggedInProfile.cpuThresholdPercent = 2 * threshold;
  settings.targetApps = {"", "FOO", "bar", "Claude"};
  return settings;
}

/// Loads in quarters, which add up without rounding in any order.
Processes processesOf(std::string_view text) {
  Processes processes;
  for (; text.size() >= 4 && processes.size() < 40;
       text.remove_prefix(std::min<std::size_t>(5, text.size()))) {
    const auto digit = [text](std::size_t at, int limit) {
      return static_cast<unsigned char>(text[at] - '0') % limit;
    };
    const Command& command = commands[digit(3, 8)];
    processes.push_back(
        {digit(0, 16), digit(1, 17) - 1, digit(2, 10) / 4.0, command.path, command.arguments});
  }
  return processes;
}

struct Group {
  std::string name;
  bool trustsCPU;
  std::set<std::int32_t> pids, roots;
};

std::vector<Group> plainGroups(const Processes& processes, const GuardSettings& settings,
                               const AgentResolver& resolver) {
  std::vector<Group> groups;
  for (const ProcessSnapshot& process : processes) {
    std::optional<Group> match;
    if (const auto* profile = resolver.profileForCommand(process.command, process.arguments)) {
      match = Group{profile->displayName, profile->trustsCPUSignal, {}, {}};
    } else {
      for (const std::string& target : settings.targetApps) {
        if (AgentAppName::matches(process.displayName(), target) ||
            AgentAppName::matches(process.command, target)) {
          match = Group{target, true, {}, {}};
          break;
        }
      }
    }
    if (!match) continue;
    auto group = std::find_if(groups.begin(), groups.end(),
                              [&](const Group& known) { return known.name == match->name; });
    if (group == groups.end()) group = groups.insert(groups.end(), *match);
    group->roots.insert(process.pid);
    group->pids.insert(process.pid);
  }
  for (Group& group : groups) {
    for (std::size_t before = 0; before < group.pids.size();) {
      before = group.pids.size();
      for (const ProcessSnapshot& process : processes) {
        if (group.pids.count(process.parentPID) > 0) group.pids.insert(process.pid);
      }
    }
  }
  return groups;
}

std::vector<ActivitySignal> plainSignals(const Processes& processes, const GuardSettings& settings,
                                         const AgentResolver& resolver, double limit) {
  const auto rowOf = [&](std::int32_t pid) {
    return std::find_if(processes.begin(), processes.end(),
                        [pid](const ProcessSnapshot& process) { return process.pid == pid; });
  };
  const std::vector<Group> groups = plainGroups(processes, settings, resolver);
  const auto hasMatchedAncestor = [&](std::int32_t pid) {
    std::set<std::int32_t> visited;
    for (auto row = rowOf(pid); row != processes.end() && row->parentPID > 1;) {
      const std::int32_t parent = row->parentPID;
      if (!visited.insert(parent).second) return false;
      for (const Group& group : groups) {
        if (group.roots.count(parent) > 0) return true;
      }
      row = rowOf(parent);
    }
    return false;
  };
  std::vector<ActivitySignal> signals;
  for (const Group& group : groups) {
    double load = 0;
    for (const std::int32_t pid : group.pids) load += rowOf(pid)->cpuPercent;
    const bool isBusy = group.trustsCPU && load >= limit;
    signals.push_back(
        {.strength = isBusy ? SignalStrength::strong : SignalStrength::presence,
         .appName = group.name,
         .reason = group.name + (isBusy ? " CPU is above the work threshold" : " is running"),
         .sessionCount =
             std::count_if(group.roots.begin(), group.roots.end(),
                           [&](std::int32_t root) { return !hasMatchedAncestor(root); })});
  }
  return signals;
}

std::vector<ActivitySignal> byName(std::vector<ActivitySignal> signals) {
  std::sort(signals.begin(), signals.end(),
            [](const auto& a, const auto& b) { return a.appName < b.appName; });
  return signals;
}

/// Whether the result cannot depend on the order: no pid has two rows, and no name two kinds of
/// process.
bool isOrderFree(const Processes& processes) {
  std::set<std::int32_t> pids;
  return std::all_of(processes.begin(), processes.end(), [&](const ProcessSnapshot& process) {
    return pids.insert(process.pid).second && process.command != commands[5].path;
  });
}

}  // namespace

FUZZ(text) {
  static const GuardSettings user = settings();
  static const AgentResolver resolver = AgentResolver::make(user);
  const Processes processes = processesOf(text);
  const auto signals = ProcessDetector::detectPerApp(processes, user, {});
  require(signals == plainSignals(processes, user, resolver, threshold), "signals are as defined");

  Processes other = processes;
  other.insert(other.end(), processes.begin(), processes.end());
  require(ProcessDetector::detectPerApp(other, user, PowerSnapshot{.isOnACPower = true}) ==
              plainSignals(processes, user, resolver, 2 * threshold),
          "a row said twice counts once, and external power has its own threshold");
  if (isOrderFree(processes)) {
    other.assign(processes.rbegin(), processes.rend());
    require(byName(ProcessDetector::detectPerApp(other, user, {})) == byName(signals),
            "the order of the rows does not matter");
  } else {
    require(ProcessDetector::detect(processes, user, {}) == strongest(signals),
            "the strongest is one of them");
  }
}
