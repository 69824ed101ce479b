// What a running watch tells other commands about itself, in a small file renewed every tick.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "WakelatchCore/AgentStateMachine.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// What holds the machine awake, and what stands in the way of letting it go.
struct Held {
  bool isToolWanted = false;  ///< the keep-awake tool is to run
  /// Of the tool that runs, whether it lets the display sleep; absent: no tool runs.
  std::optional<bool> letDisplaySleep = {};
  bool isToolProven = false;            ///< it has run long enough to be believed, or said so
  bool isLidClosedEngaged = false;      ///< the lid-closed setting is on, or not known to be off
  bool isRestoreOpen = false;           ///< engaged, unwanted, and it could not be restored
  std::optional<Timestamp> since = {};  ///< since when something holds the machine awake
  std::optional<Timestamp> releaseDueAt = {};  ///< of a lid-closed keep-awake without work
  std::optional<std::string> prompt = {};      ///< what the open administrator prompt is for
  /// Why the tool that is wanted does not run, or what the one that runs does not do.
  std::optional<std::string> toolProblem = {};

  bool isToolRunning() const { return letDisplaySleep.has_value(); }
  bool isHeld() const { return isToolRunning() || isLidClosedEngaged; }

  friend bool operator==(const Held&, const Held&) = default;
};

struct WatchState {
  std::int64_t pid = 0;
  Timestamp at;                ///< of the last tick
  double intervalSeconds = 2;  ///< between ticks
  bool isStopped = false;      ///< by Ctrl-Z, until it is continued
  AppMode mode = AppMode::watchAgentUI;
  Held held;
  std::optional<Timestamp> lastActiveSignalAt = {};
  bool hasSeenWork = false;
  bool completionSleepIssued = false;

  AgentStateMachine::Memory memory() const {
    return {lastActiveSignalAt, hasSeenWork, completionSleepIssued};
  }
  /// Whether the last tick is longer ago than three intervals: the watch hangs.
  bool isStuck(Timestamp now) const;
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
inline constexpr auto json::fields<host::Held> = std::tuple{
    json::required("isToolWanted", &host::Held::isToolWanted),
    json::optional("letDisplaySleep", &host::Held::letDisplaySleep),
    json::required("isToolProven", &host::Held::isToolProven),
    json::required("isLidClosedEngaged", &host::Held::isLidClosedEngaged),
    json::required("isRestoreOpen", &host::Held::isRestoreOpen),
    json::optional("since", &host::Held::since),
    json::optional("releaseDueAt", &host::Held::releaseDueAt),
    json::optional("prompt", &host::Held::prompt),
    json::optional("toolProblem", &host::Held::toolProblem),
};
template <>
inline constexpr auto json::fields<host::WatchState> = std::tuple{
    json::required("pid", &host::WatchState::pid),
    json::required("at", &host::WatchState::at),
    json::required("intervalSeconds", &host::WatchState::intervalSeconds),
    json::required("isStopped", &host::WatchState::isStopped),
    json::required("mode", &host::WatchState::mode),
    json::required("held", &host::WatchState::held),
    json::optional("lastActiveSignalAt", &host::WatchState::lastActiveSignalAt),
    json::required("hasSeenWork", &host::WatchState::hasSeenWork),
    json::required("completionSleepIssued", &host::WatchState::completionSleepIssued),
};
}  // namespace wakelatch
