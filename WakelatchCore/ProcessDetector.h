// Detects agents in the process table: which of them run, how busy their processes are, and in how
// many independent sessions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/ShellCommand.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// One row of the process table.
struct ProcessSnapshot {
  std::int32_t pid = 0;        ///< if several rows have one id, the first gives load and parent
  std::int32_t parentPID = 0;  ///< 1 or less: started by the system itself
  double cpuPercent = 0;       ///< of one core; may exceed 100
  std::string command = {};    ///< the executable's path as `ps` reports it
  std::string arguments = {};  ///< the whole argument string; empty when unknown

  /// The last component of the command's path.
  std::string displayName() const;

  friend bool operator==(const ProcessSnapshot&, const ProcessSnapshot&) = default;
};

/// A session of an agent: a process of the agent that no other agent's process started, or a
/// worker.
struct AgentSession {
  std::int32_t pid = 0;                      ///< id of that process
  std::vector<std::int32_t> processes = {};  ///< that process and all its descendants
  bool runsTool = false;                     ///< whether one of these is a tool
  /// Whether it is a worker that has outlived its agent; it counts only while its turn lasts.
  bool isWorker = false;
};

/// One agent's processes: the signal, and the measurements behind it.
struct AgentProcesses {
  /// Strong if the agent is busy and its load is trusted, or if it is a one-shot run; otherwise
  /// presence, but none if only workers are left.
  ActivitySignal signal = {};
  double cpuPercent = 0;        ///< load of the agent's processes and all their descendants
  double thresholdPercent = 0;  ///< CPU threshold of the power profile in force
  bool trustsCPU = false;       ///< whether CPU load means work for this agent
  bool isOneShot = false;       ///< whether one of its processes answers one prompt and ends
  double ownCPUPercent = 0;     ///< load of the agent's processes alone
  std::vector<AgentSession> sessions = {};  ///< empty for an agent without turn records
};

/// Finds agents in the process table: the built-in ones unless a host gives others. Keeps nothing
/// between calls, which may come from any thread that the runner allows. Detecting calls let
/// exceptions of the host's AgentResolver::onUnmatchedHostBundle pass; they throw no others.
class ProcessDetector {
 public:
  /// The time-out, in seconds, that hosts should give their runner: both listings end in time even
  /// on a busy machine.
  static constexpr double busyMacTimeout = 20;

  /// @param runner  used, not owned
  explicit ProcessDetector(CommandRunning& runner, AgentProfiles profiles = {})
      : runner_(runner), profiles_(std::move(profiles)) {}
  ProcessDetector(const ProcessDetector&) = delete;
  ProcessDetector& operator=(const ProcessDetector&) = delete;

  /// One signal for each agent with a process of its own, in the order of the agents' first rows.
  /// It is strong if the agent's CPU load means work and its processes with all their descendants
  /// reach the threshold of the profile in force, or if one of its processes is a one-shot run;
  /// otherwise presence. Blocks while `ps` runs twice. If the first listing fails, this is logged
  /// and there are no processes; if the second one fails, there are no arguments.
  /// @param settings  gives the watched agents, the user's own targets and the thresholds
  /// @param power     absent: the battery profile's threshold holds
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings,
                                           const std::optional<PowerSnapshot>& power);
  /// The signals of detectPerApp() with the measurements behind them, and agents of which only
  /// workers are left.
  std::vector<AgentProcesses> inspect(const GuardSettings& settings,
                                      const std::optional<PowerSnapshot>& power);
  /// The strongest signal of detectPerApp(), the first among equals; ActivitySignal::none() if
  /// there are none.
  ActivitySignal detect(const GuardSettings& settings, const std::optional<PowerSnapshot>& power);

  ///@{
  /// Answer as the members of these names do, for processes that are already listed; run no
  /// command.
  static std::vector<ActivitySignal> detectPerApp(const std::vector<ProcessSnapshot>& processes,
                                                  const GuardSettings& settings,
                                                  const std::optional<PowerSnapshot>& power,
                                                  const AgentProfiles& profiles = {});
  static std::vector<AgentProcesses> inspect(const std::vector<ProcessSnapshot>& processes,
                                             const GuardSettings& settings,
                                             const std::optional<PowerSnapshot>& power,
                                             const AgentProfiles& profiles = {});
  static ActivitySignal detect(const std::vector<ProcessSnapshot>& processes,
                               const GuardSettings& settings,
                               const std::optional<PowerSnapshot>& power,
                               const AgentProfiles& profiles = {});
  ///@}

  /// Parses the output of `ps -o pid=,ppid=,pcpu=,comm=`; skips invalid lines.
  static std::vector<ProcessSnapshot> parsePSOutput(std::string_view output);
  /// Parses the output of `ps -o pid=,args=`: argument strings by pid. The last line of a pid
  /// counts; invalid lines are skipped.
  static std::unordered_map<std::int32_t, std::string> parsePSArgs(std::string_view output);

 private:
  std::vector<ProcessSnapshot> liveSnapshot();

  CommandRunning& runner_;
  const AgentProfiles profiles_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
