// Combines the detectors: one call a tick merges what processes, UI text, session files and turn
// records show into one signal per agent.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/AccessibilityDetector.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/ProcessDetector.h"
#include "WakelatchCore/SessionActivityDetector.h"
#include "WakelatchCore/TurnDetector.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Asks the detectors and weighs their answers. Remembers between ticks when each agent's
/// process was last seen. No lock: calls on one instance must not overlap. Blocks for as long as
/// the detectors do, logs what they log and lets through what they throw.
class ActivityDetector {
 public:
  /// How long (seconds) after its process was last seen an agent is still believed to be the one
  /// behind text in a terminal, or behind session files that other applications write too.
  static constexpr double sharedSessionProcessWindow = 90;
  /// A session file written until so many seconds after the agent's process was last seen is taken
  /// for what the agent wrote on leaving.
  static constexpr double leavingSeconds = 10;
  /// How long a one-shot run is still believed after its turn has ended, in seconds.
  static constexpr double oneShotEndSeconds = 30;

  /// The signals of one kind, in their detector's order.
  struct Findings {
    std::vector<ActivitySignal> kept;     ///< believed
    std::vector<ActivitySignal> dropped;  ///< not believed: no process, or a record against it
  };

  /// What one tick found, and what came of it.
  struct Evidence {
    std::vector<AgentProcesses>
        process;  ///< all agents' processes; load that belongs to no turn makes no signal
    Findings accessibility;  ///< by UI text
    Findings session;        ///< by session files
    /// One signal per agent name, sorted by the names' composed Unicode scalars; each says whether
    /// the agent's process was seen, and how many sessions were where that is known.
    std::vector<ActivitySignal> merged;
    std::vector<AgentTurns> turns = {};  ///< by turn records; none without a TurnDetector
  };

  /// The detectors are used, not owned.
  /// @param turnDetector  null: turn records are not asked for
  /// @param profiles      as the detectors have
  ActivityDetector(ProcessDetector& processDetector, AccessibilityDetector& accessibilityDetector,
                   SessionActivityDetector& sessionDetector, TurnDetector* turnDetector = nullptr,
                   AgentProfiles profiles = {})
      : processDetector_(processDetector),
        accessibilityDetector_(accessibilityDetector),
        sessionDetector_(sessionDetector),
        turnDetector_(turnDetector),
        profiles_(std::move(profiles)) {}
  ActivityDetector(const ActivityDetector&) = delete;
  ActivityDetector& operator=(const ActivityDetector&) = delete;

  /// One tick: lists processes, reads windows and walks session files, once each.
  Evidence gather(const GuardSettings& settings, const PowerSnapshot& power, Timestamp now);
  /// The merged signals of gather().
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings,
                                           const PowerSnapshot& power, Timestamp now);
  /// The strongest of detectPerApp(), the first by name among equals; ActivitySignal::none() when
  /// there is none.
  ActivitySignal detect(const GuardSettings& settings, const PowerSnapshot& power, Timestamp now);

  /// When a process of the agent was last seen by this detector.
  std::optional<Timestamp> processLastSeenAt(const std::string& appName) const;

  /// Whether UI text counts for the agent: always, unless it may come from a terminal; then only
  /// while the process was seen at most `window` seconds ago.
  static bool shouldEmitTerminalAccessibilitySignal(const AgentProfile& profile,
                                                    std::optional<Timestamp> processLastSeenAt,
                                                    Timestamp now, double window);
  /// Whether session files count for the agent: always, unless other applications write them too;
  /// then only while the process was seen at most `window` seconds ago.
  static bool shouldEmitSessionSignal(const AgentProfile& profile,
                                      std::optional<Timestamp> processLastSeenAt, Timestamp now,
                                      double window);

 private:
  using Rule = bool(const AgentProfile&, std::optional<Timestamp>, Timestamp, double);
  Findings sift(std::vector<ActivitySignal> signals, const AgentResolver& resolver, Rule& rule,
                Timestamp now) const;
  Findings siftSessions(std::vector<SessionActivity> sessions, const AgentResolver& resolver,
                        const std::vector<AgentTurns>& turns, Timestamp now) const;

  ProcessDetector& processDetector_;
  AccessibilityDetector& accessibilityDetector_;
  SessionActivityDetector& sessionDetector_;
  TurnDetector* const turnDetector_;
  const AgentProfiles profiles_;
  // By composed names. The first only grows: it has an entry for each name ever seen.
  std::map<std::string, Timestamp> processLastSeenAt_;
  std::set<std::string> loaded_;  ///< agents with load in the tick before
};

}  // namespace wakelatch
#pragma GCC visibility pop
