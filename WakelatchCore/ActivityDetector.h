// Combines the detectors: one call per tick merges what processes, UI text, session files and turn
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

/// Calls the detectors and weighs their answers. Keeps between ticks when each agent's process was
/// last seen. No lock: calls on one instance must not overlap. Blocks as long as the detectors do;
/// logs nothing itself; exceptions of the detectors pass through.
class ActivityDetector {
 public:
  /// How long after its process was last seen an agent may still be the source of text in a
  /// terminal or of session files that other applications write too, in seconds.
  static constexpr double sharedSessionProcessWindow = 90;
  /// A session file written at most this many seconds after the agent's process was last seen is
  /// taken for one that the agent wrote while it ended.
  static constexpr double leavingSeconds = 10;
  /// How long the load of a one-shot run still counts as work after its turn has ended, in seconds.
  static constexpr double oneShotEndSeconds = 30;

  /// The signals of one kind, in their detector's order.
  struct Findings {
    std::vector<ActivitySignal> kept;     ///< believed
    std::vector<ActivitySignal> dropped;  ///< not believed: no process, or a record against it
  };

  /// What the detectors found in one tick, and the signals that result.
  struct Evidence {
    /// The processes of all agents, also those whose load was not counted as work.
    std::vector<AgentProcesses> process;
    Findings accessibility;  ///< by UI text
    Findings session;        ///< by session files
    /// One signal per agent name, sorted by the Unicode scalars of the composed (NFC) names. Each
    /// says whether the agent's process was seen and, if known, how many sessions there are.
    std::vector<ActivitySignal> merged;
    std::vector<AgentTurns> turns = {};  ///< by turn records; empty without a TurnDetector
  };

  /// The detectors are used, not owned.
  /// @param turnDetector  null: turn records are not read
  /// @param profiles      the ones that the detectors were given
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

  /// Detects once: lists processes, reads turn records and windows, and looks for session files.
  Evidence gather(const GuardSettings& settings, const PowerSnapshot& power, Timestamp now);
  /// The merged signals of gather().
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings,
                                           const PowerSnapshot& power, Timestamp now);
  /// The strongest of detectPerApp(), the first by name among equals; ActivitySignal::none() when
  /// there is none.
  ActivitySignal detect(const GuardSettings& settings, const PowerSnapshot& power, Timestamp now);

  /// When a process of the agent was last seen by this detector.
  std::optional<Timestamp> processLastSeenAt(const std::string& appName) const;

  /// Whether UI text counts for the agent: if its text is looked for in terminals too, only when
  /// its process was seen at most `window` seconds ago; otherwise always.
  static bool shouldEmitTerminalAccessibilitySignal(const AgentProfile& profile,
                                                    std::optional<Timestamp> processLastSeenAt,
                                                    Timestamp now, double window);
  /// Whether session files count for the agent: if other applications write them too, only when its
  /// process was seen at most `window` seconds ago; otherwise always.
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
  // Both by composed name. The map only grows: it has an entry for each name ever seen.
  std::map<std::string, Timestamp> processLastSeenAt_;
  std::set<std::string> loaded_;  ///< agents whose load reached the threshold in the previous tick
};

}  // namespace wakelatch
#pragma GCC visibility pop
