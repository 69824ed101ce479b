// Detects which agents are in a turn (at work on a prompt) from the records that they write.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/ProcessDetector.h"
#include "WakelatchCore/TurnRecords.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// What an agent's turn records say about its sessions.
struct AgentTurns {
  std::string appName;  ///< display name
  /// The state of all sessions together: working if one of them is, else waiting if one is, else
  /// idle if one is, else unclear. Absent when no record is believed.
  std::optional<TurnState> state = {};
  Timestamp since = {};              ///< the earliest known time since which a record has said so
  bool tellsOfEverySession = false;  ///< whether each session has a record that is not `unclear`
  /// Whether a turn ceased to be believed in this tick; see TurnDetector::longestSilence.
  bool hasGivenUp = false;
  Timestamp firstStartedAt = {};  ///< when the oldest running session started
  Timestamp startedAt = {};       ///< when the newest running session started
  /// A sentence for the user if the state is working or waiting; empty otherwise.
  std::string reason() const;

  friend bool operator==(const AgentTurns&, const AgentTurns&) = default;
};

/// Weighs the turn records of agents whose processes run. A record is believed while the process
/// that wrote it lives. If the record does not name that process, every session counts as a
/// possible writer that ran when the record was first seen and had started before it was last
/// written. Keeps state between calls, which must not overlap. Throws and logs nothing.
class TurnDetector {
 public:
  /// How long a turn is believed without a sign of life, in seconds: without a write to its record,
  /// CPU load at the threshold or a process that the agent started during the turn.
  static constexpr double longestSilence = 7200;
  /// How long after its start an agent may be busy without a turn, in seconds: it loads, and starts
  /// helpers that run as long as it does.
  static constexpr double startUpSeconds = 30;

  /// @param reading   used, not owned
  /// @param profiles  the agents; those without turn records are ignored
  explicit TurnDetector(TurnReading& reading, AgentProfiles profiles = {})
      : reading_(reading), profiles_(std::move(profiles)) {}
  TurnDetector(const TurnDetector&) = delete;
  TurnDetector& operator=(const TurnDetector&) = delete;

  /// One entry for each watched agent whose profile has turn records and which runs. Blocks on the
  /// file system.
  /// @param processes  what ProcessDetector::inspect() gave in this tick for the same profiles
  std::vector<AgentTurns> detect(const GuardSettings& settings,
                                 const std::vector<AgentProcesses>& processes, Timestamp now);

 private:
  using Pids = std::set<std::int32_t>;
  /// A record and what previous ticks showed about it.
  struct Seen {
    TurnRecord record;                 ///< with TurnState::asksForTool resolved
    Timestamp since;                   ///< when the record first said `told`
    Pids owners;                       ///< the sessions that may have written it
    TurnState told = TurnState::idle;  ///< the state in the record itself
    double silentSeconds = 0;          ///< time without a sign of life in this turn
    bool isGivenUp = false;
    bool isInherited = false;  ///< it has one owner left, as the other possible ones have ended
  };
  struct Agent {
    std::map<std::string, Seen> records;  ///< by session
    Pids sessions;                        ///< in the previous tick
    Pids workers;                         ///< see AgentSession::isWorker
  };

  void follow(Agent& agent, const AgentProfile& profile, const AgentProcesses& processes,
              Timestamp now);
  std::vector<TurnRecord> recordsOf(const AgentProfile& profile, Timestamp since);
  void addUnrecorded(const AgentProfile& profile, const AgentProcesses& processes,
                     const Agent& agent, Timestamp now, std::map<std::string, Seen>& records);
  Seen firstSight(const TurnRecord& record, Pids owners, Timestamp now);
  bool giveUp(Agent& agent, const AgentProcesses& processes, double elapsed, Timestamp now);
  static void forgetEnded(Agent& agent, const Pids& sessions);
  bool hasStartedProcess(const AgentProcesses& processes, Timestamp since, Timestamp now);
  std::optional<Timestamp> startOf(std::int32_t pid, Timestamp now);
  static AgentTurns sumUp(const Agent& agent, const std::string& appName);

  TurnReading& reading_;
  const AgentProfiles profiles_;
  std::map<std::string, Agent> agents_;       ///< by display name
  std::map<std::int32_t, Timestamp> starts_;  ///< start times of running processes
  std::optional<Timestamp> lastTick_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
