// What a running watch tells other commands about itself, in a small file renewed every tick.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "WakelatchCore/AgentStateMachine.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

struct WatchState {
  std::int64_t pid = 0;
  Timestamp at;  ///< of the tick
  AppMode mode = AppMode::watchAgentUI;
  bool isSleepPreventionEnabled = false;
  std::optional<bool> appliedLetDisplaySleep = {};
  bool isLidClosedProtectionEngaged = false;
  std::optional<Timestamp> releaseDueAt = {};  ///< of a lid-closed keep-awake without work
  std::optional<Timestamp> lastActiveSignalAt = {};
  bool hasSeenWork = false;
  bool completionSleepIssued = false;

  AgentStateMachine::Memory memory() const {
    return {lastActiveSignalAt, hasSeenWork, completionSleepIssued};
  }
};

/// The state of the watch that runs now: only while one holds the lock and its file can be read.
std::optional<WatchState> runningWatchState();

/// The process that watches now, whether or not its state can be read; -1 when it did not say.
std::optional<std::int64_t> runningWatch();

/// Replaces the state file. Throws std::system_error.
void writeWatchState(const WatchState& state);

}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto jsonFields<host::WatchState> = std::tuple{
    required("pid", &host::WatchState::pid),
    required("at", &host::WatchState::at),
    required("mode", &host::WatchState::mode),
    required("isSleepPreventionEnabled", &host::WatchState::isSleepPreventionEnabled),
    optional("appliedLetDisplaySleep", &host::WatchState::appliedLetDisplaySleep),
    required("isLidClosedProtectionEngaged", &host::WatchState::isLidClosedProtectionEngaged),
    optional("releaseDueAt", &host::WatchState::releaseDueAt),
    optional("lastActiveSignalAt", &host::WatchState::lastActiveSignalAt),
    required("hasSeenWork", &host::WatchState::hasSeenWork),
    required("completionSleepIssued", &host::WatchState::completionSleepIssued),
};
}  // namespace wakelatch
