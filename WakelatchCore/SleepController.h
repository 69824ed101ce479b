// Carries out decisions: keeps the machine awake by running the system's keep-awake tool, and with
// a closed lid also by a power setting, which stays in force until it is reset. Undoes both, also
// after an earlier run has crashed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Mutex.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/ShellCommand.h"

#pragma GCC visibility push(default)
namespace wakelatch {

namespace platform {
class WatchedChild;
}

/// Controls the keep-awake process and the lid-closed power setting.
///
/// The properties may be read from any thread at any time. All other operations must come from one
/// thread at a time, unless they say otherwise. They block while a command runs (the administrator
/// prompt waits for the user, up to its runner's time-out) and for up to 4 seconds while a
/// keep-awake process ends. They do not throw: failures are logged, unless nobody could act on
/// them, and have the effect that each operation documents.
class SleepController {
 public:
  /// What the system says about its lid-closed setting, `disablesleep`.
  enum class DisableSleepState {
    on,       ///< the machine does not sleep, not even with its lid closed
    off,      ///< it sleeps as usual
    unknown,  ///< no answer
  };

  /// How the keep-awake tool is started and watched.
  struct ToolOptions {
    /// How long, in seconds, a start waits for the ready line: a line on the tool's standard output
    /// that says that it keeps the machine awake. A tool that ends or prints none in time has
    /// failed to start. A process that is to be replaced is ended only after the new one's ready
    /// line. 0: the tool counts as started as soon as it runs, and its output goes where the host's
    /// goes.
    double readySeconds = 0;
    /// Called when a keep-awake process has ended without the controller stopping it: once for each
    /// such process, on a thread of its own, and never after the controller is destroyed.
    std::function<void()> ended = {};
  };

  /// Runners and logger are used, not owned.
  /// @param runner          runs commands that need no privilege
  /// @param adminRunner     runs the commands that prompt for the administrator's password
  /// @param logger          receives what is done and what fails
  /// @param caffeinatePath  path of the keep-awake tool, which has to run until it is terminated
  SleepController(CommandRunning& runner, CommandRunning& adminRunner, FileLogger& logger,
                  std::string caffeinatePath);
  /// A controller with other tool options than the default ones.
  SleepController(CommandRunning& runner, CommandRunning& adminRunner, FileLogger& logger,
                  std::string caffeinatePath, ToolOptions toolOptions);
  /// Stops the keep-awake process and removes the pid file, even if another controller wrote it.
  /// Leaves the lid-closed setting as it is.
  ~SleepController();
  SleepController(const SleepController&) = delete;
  SleepController& operator=(const SleepController&) = delete;

  /// Whether the last enabling call left a keep-awake process running.
  bool isSleepPreventionEnabled() const;
  /// Whether the lid-closed setting is engaged, or its restore could not be confirmed.
  bool isLidClosedProtectionEngaged() const;
  /// The display posture of the running keep-awake process: whether it lets the display sleep.
  /// Absent while none runs.
  std::optional<bool> appliedLetDisplaySleep() const;
  /// Why the last attempt to start a keep-awake process failed; absent once one has started, or
  /// when the running one suffices again.
  std::optional<std::string> keepAwakeFailure() const;
  /// The ready line of the keep-awake process that started last; empty without
  /// ToolOptions::readySeconds.
  std::string keepAwakeWord() const;
  /// Why the last sleepNow() failed; absent when it succeeded.
  std::optional<std::string> sleepFailure() const;

  // ------------------------------------------------------------------------------- every tick

  /// Calls enableSleepPrevention() if `enabled`, else restoreNormalSleep(); returns its result.
  bool setSleepPrevention(bool enabled, bool allowLidClosed, bool letDisplaySleep);

  /// Starts the keep-awake process unless it runs. If it runs in another display posture, it is
  /// replaced; the new process starts before the old one ends. A start that fails is logged once
  /// until one succeeds, and a running process then stays. Afterwards engages the lid-closed
  /// setting if `allowLidClosed`; otherwise leaves it as it is. Returns false only if engaging it
  /// failed.
  bool enableSleepPrevention(bool allowLidClosed, bool letDisplaySleep);

  /// Stops the keep-awake process, then restores the lid-closed setting if it is engaged, which may
  /// prompt. Returns false if the setting may still be engaged; the next call tries again.
  bool restoreNormalSleep();

  /// Restores the lid-closed setting if it is engaged, which may prompt; the keep-awake process
  /// keeps running. Returns false if the setting may still be engaged; the next call tries again.
  bool releaseLidClosedProtection();

  /// Puts the machine to sleep. Returns when the system has taken the request; a failure is logged,
  /// and sleepFailure() names its cause.
  void sleepNow();

  // --------------------------------------------------- when nobody can answer a prompt, or wait

  /// Stops the keep-awake process and leaves the lid-closed setting as it is.
  void stopKeepAwake();

  /// Sends SIGTERM to the keep-awake process, and to one that is being started, and returns at
  /// once. From any thread, also while another call waits for a prompt or a disk. A call that stops
  /// the process has to follow, to make sure that it has ended and to remove the pid file.
  void signalKeepAwake() const;

  /// Restores the lid-closed setting without a prompt if it is engaged; this works only in a host
  /// that has the privilege. Then asks the system for the setting. Returns false if it may still be
  /// engaged.
  bool restoreLidClosedWithoutPrompt();

  // ------------------------------------------------- at start-up, before the first enabling call

  /// Sends SIGTERM to the keep-awake processes that the pid file lists, without waiting for their
  /// end, and removes the file. A process to which `ps` gives another name than the keep-awake
  /// tool's is left alone.
  void reconcileOrphanedCaffeinate();

  /// Restores the lid-closed setting if a marker shows that an earlier run left it engaged, which
  /// may prompt. Returns false if the setting may still be engaged; true without a marker.
  bool reconcileStuckDisableSleep();

  // ------------------------------------------------------------------------ lid-closed setting

  /// Engages the setting, with a prompt, unless it is engaged. Returns false if the prompt was
  /// declined or failed; the next call prompts again.
  bool engageLidClosedProtection();

  /// The setting as `pmset -g` reports it, whoever set it; `unknown` if the command fails or prints
  /// nothing but white space.
  DisableSleepState disableSleepState() { return disableSleepState(runner_); }
  /// The setting as `pmset -g` reports it; callable from any thread that may use `runner`.
  /// @param runner  runs the command in place of the controller's own
  static DisableSleepState disableSleepState(CommandRunning& runner);
  /// Whether disableSleepState() is `on`.
  bool isSystemSleepDisabled();

  /// Asks the system for the setting, without a prompt, and adopts the answer: `on` counts as
  /// engaged, whoever engaged it, `off` as not engaged, and `unknown` changes nothing. Shows the
  /// outcome of a prompt whose command was cut off. Returns the answer.
  DisableSleepState reconcileLidClosedProtection();

  /// Treats the setting as engaged although something else engaged it, so that the next release
  /// restores it.
  void adoptDisableSleepEngaged();

  /// Stops the keep-awake process and restores the setting, even if it does not count as engaged;
  /// may prompt.
  void emergencyRestore();

  // ------------------------------------------------------------------------- files and formats

  /// Path of the pid file, "caffeinate.pid" in the library's directory under the home directory. It
  /// holds the id of the current keep-awake process and, while that replaces another one, the other
  /// one's id, a line each. Every call reads `HOME`.
  static std::filesystem::path pidFileURL();
  /// Path of the marker, an empty file "disablesleep.engaged" beside the pid file. It exists while
  /// the setting is engaged or may be. Every call reads `HOME`.
  static std::filesystem::path engagedMarkerURL();

  /// The arguments that the keep-awake tool is started with.
  static std::vector<std::string> caffeinateArguments(bool letDisplaySleep);
  /// The ids in the pid file; none if it is missing, unreadable or not UTF-8. Logs nothing.
  static std::vector<std::int32_t> readCaffeinatePIDs();
  /// The lines of `text` that are 32-bit integers, in order; other lines are skipped.
  static std::vector<std::int32_t> parseCaffeinatePIDs(std::string_view text);
  /// Whether the output of `pmset -g` says that sleep is disabled.
  static bool parseSleepDisabled(std::string_view output);

 private:
  /// A keep-awake process and the posture that it was started with; null when none is wanted.
  struct KeepAwake {
    std::shared_ptr<platform::WatchedChild> process;
    bool letDisplaySleep = false;
  };

  struct Started {
    std::shared_ptr<platform::WatchedChild> process;  ///< null if the start failed
    std::string word, failure;
  };

  KeepAwake keepAwake() const;
  Started launchCaffeinate(bool letDisplaySleep);
  bool startCaffeinate(bool letDisplaySleep);
  void stopCaffeinate();
  bool disengageDisableSleep();
  bool restoreDirectly();
  bool noteRestore(bool isRestored);
  void noteEngaged(bool isEngaged);
  void writeCaffeinatePIDs(const std::vector<std::int32_t>& ids);
  void writeEngagedMarker();

  mutable platform::Mutex lock_;  // never held across a launch, a command, a signal or a wait
  bool isSleepPreventionEnabled_ WAKELATCH_GUARDED_BY(lock_) = false;
  bool disableSleepEngaged_ WAKELATCH_GUARDED_BY(lock_) = false;
  CommandRunning& runner_;
  CommandRunning& adminRunner_;
  FileLogger& logger_;
  KeepAwake keepAwake_ WAKELATCH_GUARDED_BY(lock_);
  /// The process whose ready line is awaited.
  std::shared_ptr<platform::WatchedChild> startingProcess_ WAKELATCH_GUARDED_BY(lock_);
  std::optional<std::string> keepAwakeFailure_ WAKELATCH_GUARDED_BY(lock_);
  std::string keepAwakeWord_ WAKELATCH_GUARDED_BY(lock_);
  std::optional<std::string> sleepFailure_ WAKELATCH_GUARDED_BY(lock_);
  bool caffeinateLaunchFailureLogged_ WAKELATCH_GUARDED_BY(lock_) = false;
  const std::string caffeinatePath_;
  const ToolOptions toolOptions_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
