#include "WakelatchCore/ProcessDetector.h"

#include <algorithm>
#include <cstddef>
#include <exception>

#include "Platform/Numbers.h"
#include "Platform/Split.h"
#include "Platform/Text.h"
#include "WakelatchCore/AgentAppName.h"
#include "WakelatchCore/AgentCommandLine.h"
#include "WakelatchCore/FileLogger.h"

namespace wakelatch {
namespace {

/// Stands for a process: the index of the first row with its pid.
using Node = std::size_t;
constexpr Node noNode = static_cast<Node>(-1);

/// The parent and child links of a list of processes. If a pid has several rows, its parent and CPU
/// load are the first row's, but it is a child of every row's parent. The links may form loops.
class ProcessTree {
 public:
  explicit ProcessTree(const std::vector<ProcessSnapshot>& rows)
      : rows_(rows),
        nodes_(rows.size()),
        parents_(rows.size()),
        firstChildRows_(rows.size(), noNode),
        nextSiblingRows_(rows.size()) {
    std::unordered_map<std::int32_t, Node> nodeByPID(rows.size());
    for (std::size_t row = 0; row < rows.size(); ++row) {
      nodes_[row] = nodeByPID.try_emplace(rows[row].pid, row).first->second;
    }
    for (std::size_t row = 0; row < rows.size(); ++row) {
      const auto parent = nodeByPID.find(rows[row].parentPID);
      parents_[row] = parent == nodeByPID.end() ? noNode : parent->second;
      if (parents_[row] == noNode) continue;
      nextSiblingRows_[row] = firstChildRows_[parents_[row]];
      firstChildRows_[parents_[row]] = row;
    }
  }

  std::size_t size() const { return rows_.size(); }
  Node nodeOfRow(std::size_t row) const { return nodes_[row]; }
  const ProcessSnapshot& process(Node node) const { return rows_[node]; }

  /// The process that started this one; noNode if that is not listed, or is pid 1 or less.
  Node parent(Node node) const { return rows_[node].parentPID > 1 ? parents_[node] : noNode; }

  template <class Use>
  void forEachChild(Node node, Use use) const {
    for (auto row = firstChildRows_[node]; row != noNode; row = nextSiblingRows_[row]) {
      use(nodes_[row]);
    }
  }

 private:
  const std::vector<ProcessSnapshot>& rows_;
  std::vector<Node> nodes_;                   // by row
  std::vector<Node> parents_;                 // by row
  std::vector<std::size_t> firstChildRows_;   // by node
  std::vector<std::size_t> nextSiblingRows_;  // by row
};

/// Walks over trees of processes, visiting each process once per walk.
class Subtrees {
 public:
  explicit Subtrees(const ProcessTree& tree) : tree_(tree), seenInWalk_(tree.size(), 0) {}

  /// Calls `use(node)` for `roots` and all their descendants.
  template <class Use>
  void forEach(const std::vector<Node>& roots, Use use) {
    ++walks_;
    for (const Node root : roots) add(root);
    while (!open_.empty()) {
      const Node node = open_.back();
      open_.pop_back();
      use(node);
      tree_.forEachChild(node, [this](Node child) { add(child); });
    }
  }

 private:
  void add(Node node) {
    if (seenInWalk_[node] == walks_) return;
    seenInWalk_[node] = walks_;
    open_.push_back(node);
  }

  const ProcessTree& tree_;
  std::size_t walks_ = 0;
  std::vector<std::size_t> seenInWalk_;  // by node: the last walk that visited it
  std::vector<Node> open_;
};

/// The processes found for one agent's name.
struct Group {
  std::string name;
  bool trustsCPU = false;
  const AgentProfile* profile = nullptr;  ///< null for the user's own targets
  bool isOneShot = false;
  std::vector<Node> roots = {};  ///< the matched processes themselves, each once
  std::vector<Node> workers = {};
};

/// Answers whether a process has a matched one among its ancestors. Keeps the answers for all nodes
/// on the way up, so that long chains are walked only once.
class MatchedAncestors {
 public:
  MatchedAncestors(const ProcessTree& tree, const std::vector<Group>& matched)
      : tree_(tree), isMatched_(tree.size()), answers_(tree.size(), Answer::unknown) {
    for (const Group& group : matched) {
      for (const Node root : group.roots) isMatched_[root] = true;
    }
  }

  bool has(Node start) {
    bool found = false;
    for (Node node = tree_.parent(start); node != noNode; node = tree_.parent(node)) {
      found = isMatched_[node] || answers_[node] == Answer::yes;
      if (found || answers_[node] == Answer::no) break;
      answers_[node] = Answer::no;  // provisional; ends the walk if the links form a loop
      path_.push_back(node);
    }
    if (found) {
      for (const Node node : path_) answers_[node] = Answer::yes;
    }
    path_.clear();
    return found;
  }

 private:
  enum class Answer : char { unknown, no, yes };
  const ProcessTree& tree_;
  std::vector<bool> isMatched_;  // by node
  std::vector<Answer> answers_;  // by node: whether one of its ancestors is matched
  std::vector<Node> path_;
};

/// The user's target names, normalised once.
class TargetNames {
 public:
  explicit TargetNames(const std::vector<std::string>& targets) : targets_(targets) {
    for (const std::string& target : targets) {
      normalized_.push_back(AgentAppName::normalized(target));
    }
  }

  /// The first target that denotes the process's name or command, as the user wrote it, or null.
  const std::string* match(const ProcessSnapshot& process) const {
    if (targets_.empty()) return nullptr;
    const std::string name = AgentAppName::normalized(process.displayName());
    const std::string command = AgentAppName::normalized(process.command);
    for (std::size_t i = 0; i < targets_.size(); ++i) {
      if (AgentAppName::matchesNormalized(name, normalized_[i]) ||
          AgentAppName::matchesNormalized(command, normalized_[i])) {
        return &targets_[i];
      }
    }
    return nullptr;
  }

 private:
  const std::vector<std::string>& targets_;
  std::vector<std::string> normalized_;
};

/// ProcessDetector::parsePSArgs() without copying the arguments, which may be megabytes.
std::unordered_map<std::int32_t, std::string_view> argumentViews(std::string_view output) {
  std::unordered_map<std::int32_t, std::string_view> arguments;
  for (const std::string_view line : platform::Split(output, '\n')) {
    const std::string_view trimmed = platform::trimmedSpaces(line);
    const std::size_t space = trimmed.find(' ');
    if (space == trimmed.npos) continue;
    const auto pid = platform::parseInt32(trimmed.substr(0, space));
    if (pid) arguments.insert_or_assign(*pid, platform::trimmedSpaces(trimmed.substr(space)));
  }
  return arguments;
}

bool isTool(const ProcessSnapshot& process, const AgentProfile& profile) {
  return std::any_of(
      profile.toolMarkers.begin(), profile.toolMarkers.end(), [&](const std::string& marker) {
        return !marker.empty() && process.arguments.find(marker) != process.arguments.npos;
      });
}

/// Whether the process's parent has ended, so that it was handed to the system's first process or,
/// on some Linux desktops, to the user's service manager.
bool isOrphan(const ProcessTree& tree, Node node) {
  if (tree.process(node).parentPID <= 1) return true;
  const Node parent = tree.parent(node);
  return parent != noNode && tree.process(parent).parentPID <= 1 &&
         platform::baseName(tree.process(parent).command, '/') == "systemd";
}

std::vector<Group> groupByAgent(const std::vector<ProcessSnapshot>& processes,
                                const ProcessTree& tree, const GuardSettings& settings,
                                const AgentResolver& resolver) {
  const TargetNames targets(settings.targetApps);
  std::vector<Group> groups;
  std::unordered_map<std::string, std::size_t> groupByName;
  const auto groupOf = [&](const std::string& name, bool trustsCPU) -> Group& {
    const auto [entry, isNew] = groupByName.try_emplace(name, groups.size());
    if (isNew) groups.push_back({name, trustsCPU});
    return groups[entry->second];
  };
  for (std::size_t row = 0; row < processes.size(); ++row) {
    const ProcessSnapshot& process = processes[row];
    const Node node = tree.nodeOfRow(row);
    if (const auto* profile = resolver.profileForCommand(process.command, process.arguments)) {
      const AgentCommandLine command(process.command, process.arguments);
      const bool isLeft = isOrphan(tree, node);
      if (isLeft && command.hasOneOf(profile->helperArguments)) continue;
      Group& group = groupOf(profile->displayName, profile->trustsCPUSignal);
      group.profile = profile;
      if (isLeft && command.hasOneOf(profile->workerArguments)) {
        group.workers.push_back(node);
        continue;
      }
      group.roots.push_back(node);
      if (command.runOf(*profile) == AgentCommandLine::Run::oneShot) group.isOneShot = true;
    } else if (const auto* target = targets.match(process)) {
      groupOf(*target, true).roots.push_back(node);
    }
  }
  for (Group& group : groups) {
    std::sort(group.roots.begin(), group.roots.end());
    group.roots.erase(std::unique(group.roots.begin(), group.roots.end()), group.roots.end());
  }
  return groups;
}

}  // namespace

std::string ProcessSnapshot::displayName() const {
  const std::string_view name = platform::baseName(command, '/');
  return std::string(name.starts_with('/') ? name.substr(0, 1) : name);  // "//" is the root, "/"
}

std::vector<ActivitySignal> ProcessDetector::detectPerApp(
    const GuardSettings& settings, const std::optional<PowerSnapshot>& power) {
  return detectPerApp(liveSnapshot(), settings, power, profiles_);
}

std::vector<AgentProcesses> ProcessDetector::inspect(const GuardSettings& settings,
                                                     const std::optional<PowerSnapshot>& power) {
  return inspect(liveSnapshot(), settings, power, profiles_);
}

ActivitySignal ProcessDetector::detect(const GuardSettings& settings,
                                       const std::optional<PowerSnapshot>& power) {
  return detect(liveSnapshot(), settings, power, profiles_);
}

std::vector<ActivitySignal> ProcessDetector::detectPerApp(
    const std::vector<ProcessSnapshot>& processes, const GuardSettings& settings,
    const std::optional<PowerSnapshot>& power, const AgentProfiles& profiles) {
  std::vector<ActivitySignal> signals;
  for (AgentProcesses& agent : inspect(processes, settings, power, profiles)) {
    if (agent.signal.strength != SignalStrength::none) signals.push_back(std::move(agent.signal));
  }
  return signals;
}

std::vector<AgentProcesses> ProcessDetector::inspect(const std::vector<ProcessSnapshot>& processes,
                                                     const GuardSettings& settings,
                                                     const std::optional<PowerSnapshot>& power,
                                                     const AgentProfiles& profiles) {
  const double threshold = settings.profile(power.value_or(PowerSnapshot())).cpuThresholdPercent;
  const ProcessTree tree(processes);
  const AgentResolver resolver = profiles.watched(settings);
  const std::vector<Group> groups = groupByAgent(processes, tree, settings, resolver);
  MatchedAncestors ancestors(tree, groups);

  std::vector<AgentProcesses> agents;
  Subtrees subtrees(tree);
  for (const Group& group : groups) {
    AgentProcesses& agent = agents.emplace_back();
    agent.thresholdPercent = threshold;
    agent.trustsCPU = group.trustsCPU;
    agent.isOneShot = group.isOneShot;
    std::vector<Node> all = group.roots;
    all.insert(all.end(), group.workers.begin(), group.workers.end());
    subtrees.forEach(all, [&](Node node) { agent.cpuPercent += tree.process(node).cpuPercent; });
    const auto addSession = [&](Node root, bool isWorker) {
      if (group.profile == nullptr || group.profile->turnRecords.empty()) return;
      AgentSession& session = agent.sessions.emplace_back();
      session.pid = tree.process(root).pid;
      session.isWorker = isWorker;
      subtrees.forEach({root}, [&](Node node) {
        session.processes.push_back(tree.process(node).pid);
        const bool isRoot = std::binary_search(group.roots.begin(), group.roots.end(), node);
        session.runsTool =
            session.runsTool || (!isRoot && isTool(tree.process(node), *group.profile));
      });
    };
    std::int64_t sessionCount = 0;
    for (const Node root : group.roots) {
      agent.ownCPUPercent += tree.process(root).cpuPercent;
      if (ancestors.has(root)) continue;
      ++sessionCount;
      addSession(root, false);
    }
    for (const Node worker : group.workers) {
      agent.ownCPUPercent += tree.process(worker).cpuPercent;
      addSession(worker, true);
    }
    if (group.roots.empty()) {
      agent.signal.appName = group.name;
      continue;
    }
    const bool isBusy = group.trustsCPU && agent.cpuPercent >= threshold;
    agent.signal = {
        .strength = isBusy || group.isOneShot ? SignalStrength::strong : SignalStrength::presence,
        .appName = group.name,
        .reason = group.name + (group.isOneShot ? " works on a single prompt"
                                : isBusy        ? " CPU is above the work threshold"
                                                : " is running"),
        .sessionCount = sessionCount,
    };
  }
  return agents;
}

ActivitySignal ProcessDetector::detect(const std::vector<ProcessSnapshot>& processes,
                                       const GuardSettings& settings,
                                       const std::optional<PowerSnapshot>& power,
                                       const AgentProfiles& profiles) {
  return strongest(detectPerApp(processes, settings, power, profiles));
}

std::vector<ProcessSnapshot> ProcessDetector::liveSnapshot() {
  std::vector<ProcessSnapshot> processes;
  try {
    processes =
        parsePSOutput(runner_.run({"/bin/ps", {"-axo", "pid=,ppid=,pcpu=,comm="}}).standardOutput);
  } catch (const std::exception& error) {
    FileLogger::shared().log(std::string("ProcessDetector failed: ") + error.what());
    return {};
  }
  try {
    const CommandResult listing = runner_.run({"/bin/ps", {"-axo", "pid=,args="}});
    const auto arguments = argumentViews(listing.standardOutput);
    for (ProcessSnapshot& process : processes) {
      const auto found = arguments.find(process.pid);
      if (found != arguments.end()) process.arguments = found->second;
    }
  } catch (const std::exception&) {
    // Without arguments most agents are still recognised by their paths.
  }
  return processes;
}

std::vector<ProcessSnapshot> ProcessDetector::parsePSOutput(std::string_view output) {
  std::vector<ProcessSnapshot> processes;
  for (const std::string_view line : platform::Split(output, '\n')) {
    std::string_view rest = platform::trimmedSpaces(line);
    // Takes a field and just one space after it, as the command may begin with spaces.
    const auto takeField = [&rest] {
      rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
      const std::string_view field = rest.substr(0, rest.find(' '));
      rest.remove_prefix(std::min(field.size() + 1, rest.size()));
      return field;
    };
    const auto pid = platform::parseInt32(takeField());
    const auto parentPID = platform::parseInt32(takeField());
    const auto cpuPercent = platform::parseDecimal(takeField());
    if (!pid || !parentPID || !cpuPercent || rest.empty()) continue;
    processes.push_back({*pid, *parentPID, *cpuPercent, std::string(rest)});
  }
  return processes;
}

std::unordered_map<std::int32_t, std::string> ProcessDetector::parsePSArgs(
    std::string_view output) {
  const auto arguments = argumentViews(output);
  return {arguments.begin(), arguments.end()};
}

}  // namespace wakelatch
