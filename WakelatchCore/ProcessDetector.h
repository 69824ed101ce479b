// Agents seen through the process table: which of them run, how busy each one's processes are, and
// in how many independent sessions.
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
  std::int32_t pid = 0;        ///< of several rows with one id the first tells load and parent
  std::int32_t parentPID = 0;  ///< 1 or less: started by the system itself
  double cpuPercent = 0;       ///< of one core; may exceed 100
  std::string command = {};    ///< the executable's path as `ps` reports it
  std::string arguments = {};  ///< the whole argument string; empty when unknown

  /// The last component of the command as a file path.
  std::string displayName() const;

  friend bool operator==(const ProcessSnapshot&, const ProcessSnapshot&) = default;
};

/// An agent's process that no other agent's process started.
struct AgentSession {
  std::int32_t pid = 0;                      ///< its own
  std::vector<std::int32_t> processes = {};  ///< itself and all that it started
  bool runsTool = false;                     ///< one of these is a tool
  /// A worker that has outlived its agent; it counts only while a turn is still under way.
  bool isWorker = false;
};

/// One agent's processes: its signal, and what led to it.
struct AgentProcesses {
  /// Strong when busy and trusted, or a one-shot run; else presence, and none where nothing but
  /// workers is left.
  ActivitySignal signal = {};
  double cpuPercent = 0;                    ///< of the agent's processes and all that they started
  double thresholdPercent = 0;              ///< of the profile in force
  bool trustsCPU = false;                   ///< whether CPU load means work for this agent
  bool isOneShot = false;                   ///< a process of it answers one prompt and ends
  double ownCPUPercent = 0;                 ///< of the agent's processes alone
  std::vector<AgentSession> sessions = {};  ///< of an agent with turn records
};

/// Finds agents in the process table: those of the catalogue unless a host has others. Keeps
/// nothing between calls, which may come from any thread that the runner allows. What the host's
/// AgentResolver::onUnmatchedHostBundle throws comes out of every call that detects; nothing else
/// is thrown.
class ProcessDetector {
 public:
  /// A time limit that holds for both listings even on a busy machine, in seconds; for the host.
  static constexpr double busyMacTimeout = 20;

  /// @param runner  the host's, outlives this
  explicit ProcessDetector(CommandRunning& runner, AgentProfiles profiles = {})
      : runner_(runner), profiles_(std::move(profiles)) {}
  ProcessDetector(const ProcessDetector&) = delete;
  ProcessDetector& operator=(const ProcessDetector&) = delete;

  /// One signal for each agent that has a process of its own, in the order of the first one's row:
  /// strong when the agent's processes and all that they started use at least the CPU threshold of
  /// the profile in force and its load means work, or one is a one-shot run; otherwise presence.
  /// Blocks while `ps` runs twice. A failed first listing is logged and means no processes; a
  /// failed second one means no arguments.
  /// @param settings  which agents, the user's own targets, the thresholds
  /// @param power     absent: the battery profile's threshold
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings,
                                           const std::optional<PowerSnapshot>& power);
  /// The signals of detectPerApp() with what led to them.
  std::vector<AgentProcesses> inspect(const GuardSettings& settings,
                                      const std::optional<PowerSnapshot>& power);
  /// The strongest signal of detectPerApp(), the first among equals; ActivitySignal::none() without
  /// any.
  ActivitySignal detect(const GuardSettings& settings, const std::optional<PowerSnapshot>& power);

  ///@{
  /// What the members of these names answer for processes already listed; runs nothing.
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

  /// Lines of `ps -o pid=,ppid=,pcpu=,comm=`; those that do not parse are skipped.
  static std::vector<ProcessSnapshot> parsePSOutput(std::string_view output);
  /// Lines of `ps -o pid=,args=`: pid to argument string. The last line of a pid counts; lines that
  /// do not parse are skipped.
  static std::unordered_map<std::int32_t, std::string> parsePSArgs(std::string_view output);

 private:
  std::vector<ProcessSnapshot> liveSnapshot();

  CommandRunning& runner_;
  const AgentProfiles profiles_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
