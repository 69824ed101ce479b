// What `status`, `watch` and `explain` tell about one tick, for people and as JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Host/OneTick.h"
#include "Host/WatchState.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// An agent's processes.
struct ProcessEvidence {
  double cpuPercent = 0;                     ///< of one core, with all that they started
  double thresholdPercent = 0;               ///< of the power profile in force
  bool trustsCPU = false;                    ///< whether load means work for this agent
  std::optional<std::int64_t> sessionCount;  ///< independent ones among the processes
};

/// Text in windows.
struct UITextEvidence {
  SignalStrength strength = SignalStrength::none;
  std::optional<std::string> matchedText;  ///< the phrase that was found
  bool isBelieved = false;
};

/// Fresh session files.
struct SessionFileEvidence {
  double ageSeconds = 0;  ///< of the newest; 0 when it is from the future
  bool isBelieved = false;
};

/// The agent's own record of its turns.
struct TurnEvidence {
  TurnState state = TurnState::idle;
  double ageSeconds = 0;             ///< since it first told this
  bool tellsOfEverySession = false;  ///< otherwise the rest of the evidence counts beside it
};

/// What speaks for the work of one agent: sentences for people, and figures for each kind of
/// evidence that there is.
struct AgentEvidence {
  std::string agent;              ///< display name
  std::optional<std::string> id;  ///< in the catalogue; the user's own targets have none
  std::vector<std::string> seen;
  std::vector<std::string> notBelieved;
  std::optional<ProcessEvidence> process;
  std::optional<UITextEvidence> uiText;
  std::optional<SessionFileEvidence> sessionFile;
  std::optional<TurnEvidence> turn = {};
};

/// A merged signal as it is reported.
struct AgentSignal : ActivitySignal {
  std::optional<std::string> agentID;  ///< as AgentEvidence::id
};

/// One tick as a record.
struct StatusReport {
  std::optional<std::string> at;  ///< when the look began: ISO 8601 with milliseconds
  AppMode mode = AppMode::watchAgentUI;
  PowerSnapshot power;
  std::vector<AgentSignal> signals;
  LidState lidState = LidState::unknown;
  ThermalState thermalState = ThermalState::nominal;
  GuardDecision decision;
  std::vector<AgentEvidence> evidence;
  /// Why UI text is not read.
  std::optional<std::string> uiTextNotice;
  bool isWatchRunning = false;
  std::optional<WatchState> watch;  ///< what a running watch has in effect, after its first tick
};

StatusReport makeStatusReport(const OneTick& tick);

/// Makes the lines that a watch prints where it draws no screen: in JSON one for each tick, as text
/// one when the decision has changed.
class TickLines {
 public:
  explicit TickLines(bool isJSON) : isJSON_(isJSON) {}

  /// The line of the next tick without line break, nothing when it has none. In JSON, why UI text
  /// is not read stands in the first line and where that has changed.
  /// @param at  when the tick's look began
  std::optional<std::string> next(StatusReport report, Timestamp at);

 private:
  const bool isJSON_;
  std::optional<std::string> uiTextNotice_;  ///< of the last tick
  std::optional<GuardDecision> decision_;    ///< as told last
};

/// The strength of the agent's merged signal; none when nothing of its evidence is believed.
SignalStrength strengthOf(const AgentEvidence& agent, const StatusReport& report);
/// In a word for people: "working", "not believed".
std::string_view strengthWord(SignalStrength strength);

/// The table that `status` prints; `now` tells how old the watch's last tick is.
std::string statusTable(const StatusReport& report, Timestamp now);

/// One line without line break: "Keeping Awake: Codex CLI CPU is above the work threshold".
std::string statusLine(const StatusReport& report);

}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto jsonFields<GuardDecision> = std::tuple{
    required("status", &GuardDecision::status),
    required("shouldPreventSleep", &GuardDecision::shouldPreventSleep),
    required("shouldSleepNow", &GuardDecision::shouldSleepNow),
    optional("detectedAppName", &GuardDecision::detectedAppName),
    required("reason", &GuardDecision::reason),
    required("isBatteryWarning", &GuardDecision::isBatteryWarning),
};
template <>
inline constexpr auto jsonFields<host::ProcessEvidence> = std::tuple{
    required("cpuPercent", &host::ProcessEvidence::cpuPercent),
    required("thresholdPercent", &host::ProcessEvidence::thresholdPercent),
    required("trustsCPU", &host::ProcessEvidence::trustsCPU),
    optional("sessionCount", &host::ProcessEvidence::sessionCount),
};
template <>
inline constexpr auto jsonFields<host::UITextEvidence> = std::tuple{
    required("strength", &host::UITextEvidence::strength),
    optional("matchedText", &host::UITextEvidence::matchedText),
    required("isBelieved", &host::UITextEvidence::isBelieved),
};
template <>
inline constexpr auto jsonFields<host::SessionFileEvidence> = std::tuple{
    required("ageSeconds", &host::SessionFileEvidence::ageSeconds),
    required("isBelieved", &host::SessionFileEvidence::isBelieved),
};
template <>
inline constexpr auto jsonFields<host::AgentSignal> = std::tuple_cat(
    jsonFields<ActivitySignal>, std::tuple{optional("agentID", &host::AgentSignal::agentID)});
template <>
inline constexpr auto jsonFields<host::TurnEvidence> = std::tuple{
    required("state", &host::TurnEvidence::state),
    required("ageSeconds", &host::TurnEvidence::ageSeconds),
    required("tellsOfEverySession", &host::TurnEvidence::tellsOfEverySession),
};
template <>
inline constexpr auto jsonFields<host::AgentEvidence> = std::tuple{
    required("agent", &host::AgentEvidence::agent),
    optional("id", &host::AgentEvidence::id),
    required("seen", &host::AgentEvidence::seen),
    required("notBelieved", &host::AgentEvidence::notBelieved),
    optional("process", &host::AgentEvidence::process),
    optional("uiText", &host::AgentEvidence::uiText),
    optional("sessionFile", &host::AgentEvidence::sessionFile),
    optional("turn", &host::AgentEvidence::turn),
};
template <>
inline constexpr auto jsonFields<host::StatusReport> = std::tuple{
    optional("at", &host::StatusReport::at),
    required("mode", &host::StatusReport::mode),
    required("power", &host::StatusReport::power),
    required("signals", &host::StatusReport::signals),
    required("lidState", &host::StatusReport::lidState),
    required("thermalState", &host::StatusReport::thermalState),
    required("decision", &host::StatusReport::decision),
    required("evidence", &host::StatusReport::evidence),
    optional("uiTextNotice", &host::StatusReport::uiTextNotice),
    required("isWatchRunning", &host::StatusReport::isWatchRunning),
    optional("watch", &host::StatusReport::watch),
};
}  // namespace wakelatch
