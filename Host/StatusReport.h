// What `status`, `watch` and `explain` tell about one tick, for people and as JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Host/Observer.h"
#include "Host/WatchState.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// Where one agent's evidence came from, and what was seen but not believed.
struct AgentEvidence {
  std::string agent;
  std::vector<std::string> seen;
  std::vector<std::string> notBelieved;
};

/// One tick as a record.
struct StatusReport {
  std::optional<std::string> at;  ///< ISO 8601; in `watch` only
  AppMode mode = AppMode::watchAgentUI;
  PowerSnapshot power;
  std::vector<ActivitySignal> signals;
  LidState lidState = LidState::unknown;
  ThermalState thermalState = ThermalState::nominal;
  GuardDecision decision;
  std::vector<AgentEvidence> evidence;
  std::optional<std::string> uiTextNotice;  ///< UI text cannot be read here
  bool isWatchRunning = false;
  std::optional<WatchState> watch;  ///< what a running watch has in effect, after its first tick
};

StatusReport makeStatusReport(AppMode mode, const Observation& seen, const GuardDecision& decision);

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
inline constexpr auto jsonFields<host::AgentEvidence> = std::tuple{
    required("agent", &host::AgentEvidence::agent),
    required("seen", &host::AgentEvidence::seen),
    required("notBelieved", &host::AgentEvidence::notBelieved),
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
