// Which agents are in a turn, by their own records.
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

/// What an agent's turn records tell of its sessions.
struct AgentTurns {
  std::string appName;  ///< display name
  /// Of all sessions: working if one of them is, else waiting if one does, else idle, else unclear.
  /// Nothing when no record is believed.
  std::optional<TurnState> state = {};
  Timestamp since = {};              ///< when a record first told that, as far as was seen
  bool tellsOfEverySession = false;  ///< each process that is a session has a record
  bool hasGivenUp = false;  ///< in this tick a turn has ceased to be believed; see longestSilence
  Timestamp firstStartedAt = {};  ///< the start of the session that has run for the longest
  Timestamp startedAt = {};       ///< the last session's start
  /// The sentence for the user: that it is in a turn, or waits; empty for other states.
  std::string reason() const;

  friend bool operator==(const AgentTurns&, const AgentTurns&) = default;
};

/// Weighs the turn records of agents whose processes run. A record is believed while the process
/// that wrote it lives. Where the record does not name that process, it is one that ran when the
/// record was first seen and had started before the record was last written. Remembers what it saw,
/// so calls must not overlap. Throws and logs nothing.
class TurnDetector {
 public:
  /// A turn is believed for so many seconds of ticks without a sign of life: a write to its record,
  /// a load at the threshold or a process that the agent has started.
  static constexpr double longestSilence = 7200;
  /// For so many seconds after its start an agent may be busy without a turn, while it loads and
  /// starts the helpers that it keeps.
  static constexpr double startUpSeconds = 30;

  /// @param reading   used, not owned
  /// @param profiles  those with turn records are asked about
  explicit TurnDetector(TurnReading& reading, AgentProfiles profiles = {})
      : reading_(reading), profiles_(std::move(profiles)) {}
  TurnDetector(const TurnDetector&) = delete;
  TurnDetector& operator=(const TurnDetector&) = delete;

  /// One entry for each watched agent that has turn records and runs. Blocks on the file
  /// system.
  /// @param processes  of the same tick, by ProcessDetector::inspect() with the same profiles
  std::vector<AgentTurns> detect(const GuardSettings& settings,
                                 const std::vector<AgentProcesses>& processes, Timestamp now);

 private:
  using Pids = std::set<std::int32_t>;
  /// A record as it was seen until now.
  struct Seen {
    TurnRecord record;                 ///< with what it comes to in place of TurnState::asksForTool
    Timestamp since;                   ///< when it first told this
    Pids owners;                       ///< the sessions that may have written it
    TurnState told = TurnState::idle;  ///< what the record says itself
    double silentSeconds = 0;          ///< in this turn
    bool isGivenUp = false;
    bool isInherited = false;  ///< of two possible owners the other one has ended
  };
  struct Agent {
    std::map<std::string, Seen> records;  ///< by session
    Pids sessions;                        ///< in the tick before
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
  std::map<std::int32_t, Timestamp> starts_;  ///< of the processes that run
  std::optional<Timestamp> lastTick_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
