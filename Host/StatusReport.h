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
inline constexpr auto json::fields<GuardDecision> = std::tuple{
    json::required("status", &GuardDecision::status),
    json::required("shouldPreventSleep", &GuardDecision::shouldPreventSleep),
    json::required("shouldSleepNow", &GuardDecision::shouldSleepNow),
    json::optional("detectedAppName", &GuardDecision::detectedAppName),
    json::required("reason", &GuardDecision::reason),
    json::required("isBatteryWarning", &GuardDecision::isBatteryWarning),
};
template <>
inline constexpr auto json::fields<host::ProcessEvidence> = std::tuple{
    json::required("cpuPercent", &host::ProcessEvidence::cpuPercent),
    json::required("thresholdPercent", &host::ProcessEvidence::thresholdPercent),
    json::required("trustsCPU", &host::ProcessEvidence::trustsCPU),
    json::optional("sessionCount", &host::ProcessEvidence::sessionCount),
};
template <>
inline constexpr auto json::fields<host::UITextEvidence> = std::tuple{
    json::required("strength", &host::UITextEvidence::strength),
    json::optional("matchedText", &host::UITextEvidence::matchedText),
    json::required("isBelieved", &host::UITextEvidence::isBelieved),
};
template <>
inline constexpr auto json::fields<host::SessionFileEvidence> = std::tuple{
    json::required("ageSeconds", &host::SessionFileEvidence::ageSeconds),
    json::required("isBelieved", &host::SessionFileEvidence::isBelieved),
};
template <>
inline constexpr auto json::fields<host::AgentSignal> =
    std::tuple_cat(json::fields<ActivitySignal>,
                   std::tuple{json::optional("agentID", &host::AgentSignal::agentID)});
template <>
inline constexpr auto json::fields<host::TurnEvidence> = std::tuple{
    json::required("state", &host::TurnEvidence::state),
    json::required("ageSeconds", &host::TurnEvidence::ageSeconds),
    json::required("tellsOfEverySession", &host::TurnEvidence::tellsOfEverySession),
};
template <>
inline constexpr auto json::fields<host::AgentEvidence> = std::tuple{
    json::required("agent", &host::AgentEvidence::agent),
    json::optional("id", &host::AgentEvidence::id),
    json::required("seen", &host::AgentEvidence::seen),
    json::required("notBelieved", &host::AgentEvidence::notBelieved),
    json::optional("process", &host::AgentEvidence::process),
    json::optional("uiText", &host::AgentEvidence::uiText),
    json::optional("sessionFile", &host::AgentEvidence::sessionFile),
    json::optional("turn", &host::AgentEvidence::turn),
};
template <>
inline constexpr auto json::fields<host::StatusReport> = std::tuple{
    json::optional("at", &host::StatusReport::at),
    json::required("mode", &host::StatusReport::mode),
    json::required("power", &host::StatusReport::power),
    json::required("signals", &host::StatusReport::signals),
    json::required("lidState", &host::StatusReport::lidState),
    json::required("thermalState", &host::StatusReport::thermalState),
    json::required("decision", &host::StatusReport::decision),
    json::required("evidence", &host::StatusReport::evidence),
    json::optional("uiTextNotice", &host::StatusReport::uiTextNotice),
    json::required("isWatchRunning", &host::StatusReport::isWatchRunning),
    json::optional("watch", &host::StatusReport::watch),
};
}  // namespace wakelatch
