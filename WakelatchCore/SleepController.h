// Carries decisions out: keeps the machine awake by running the system's keep-awake tool, and with
// its lid closed by a power setting that outlives every process. Undoes both, also after a crash of
// an earlier run.
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

/// The properties may be read from any thread at any moment. The other operations come from one
/// thread at a time; they block while a command runs (the administrator prompt waits for the user,
/// up to its runner's time-out) and for up to 4 seconds for a keep-awake process that has to be
/// ended. None of them throws: a failure is a line of log, where somebody could mend it, and the
/// fallback named below.
class SleepController {
 public:
  /// What the system says about its lid-closed setting, `disablesleep`.
  enum class DisableSleepState {
    on,       ///< the machine does not sleep, not even with its lid closed
    off,      ///< it sleeps as usual
    unknown,  ///< no answer
  };

  /// What a host may want of its keep-awake tool beyond the usual.
  struct ToolOptions {
    /// How long to wait, at a start, for the tool's word that it holds the machine awake: a line on
    /// its standard output. A tool that ends or does not say so in time has failed to start, and
    /// the one that it was to replace runs on; until it has said so the replaced one is not ended.
    /// 0: the tool counts as soon as it runs, and its output goes where the host's goes.
    double readySeconds = 0;
    /// Told, on a thread of its own and once for each, when the keep-awake process has ended
    /// without having been stopped by the controller. Not any more once that is destroyed.
    std::function<void()> ended = {};
  };

  /// Runners and logger are used, not owned.
  /// @param runner          runs commands that need no privilege
  /// @param adminRunner     runs the commands that prompt for the administrator's password
  /// @param logger          takes a line for everything done and everything that failed
  /// @param caffeinatePath  the keep-awake tool; has to run until it is terminated
  SleepController(CommandRunning& runner, CommandRunning& adminRunner, FileLogger& logger,
                  std::string caffeinatePath);
  /// As above, with what the host wants of the tool beyond the usual.
  SleepController(CommandRunning& runner, CommandRunning& adminRunner, FileLogger& logger,
                  std::string caffeinatePath, ToolOptions toolOptions);
  /// Stops the keep-awake process, removes the pid file, even that of another controller, and
  /// leaves the lid-closed setting as it is.
  ~SleepController();
  SleepController(const SleepController&) = delete;
  SleepController& operator=(const SleepController&) = delete;

  /// Whether the last enabling call left a keep-awake process running.
  bool isSleepPreventionEnabled() const;
  /// Whether the lid-closed setting is engaged, or its restore could not be confirmed.
  bool isLidClosedProtectionEngaged() const;
  /// The display posture in effect; absent while no keep-awake process runs.
  std::optional<bool> appliedLetDisplaySleep() const;
  /// Why the last try to start a keep-awake process failed; absent once one has started.
  std::optional<std::string> keepAwakeFailure() const;
  /// What the last keep-awake process that started has said in its word (ToolOptions).
  std::string keepAwakeWord() const;
  /// Why the last sleepNow() failed; absent when it did not.
  std::optional<std::string> sleepFailure() const;

  // ------------------------------------------------------------------------------- every tick

  /// What a tick wants: enableSleepPrevention() when enabled, else restoreNormalSleep().
  bool setSleepPrevention(bool enabled, bool allowLidClosed, bool letDisplaySleep);

  /// Starts the keep-awake process unless it runs. In another display posture it is replaced, the
  /// new one starting first. Then engages the lid-closed setting when allowed; one that is engaged
  /// stays so even when not. Returns whether the lid-closed step went well, true without one.
  bool enableSleepPrevention(bool allowLidClosed, bool letDisplaySleep);

  /// Stops the keep-awake process, then restores an engaged lid-closed setting. Returns whether no
  /// setting stayed engaged.
  bool restoreNormalSleep();

  /// Restores an engaged lid-closed setting and lets the keep-awake process run on. Returns whether
  /// no setting stayed engaged.
  bool releaseLidClosedProtection();

  /// Puts the machine to sleep at once.
  void sleepNow();

  // --------------------------------------------------- when nobody can answer a prompt, or wait

  /// Stops the keep-awake process and leaves the lid-closed setting as it is.
  void stopKeepAwake();

  /// Tells the keep-awake process, and one that is being started, to end (SIGTERM), and returns at
  /// once. From any thread, also while another call waits for a prompt or a disk. A stopping call
  /// has to follow: it makes sure that the process has ended, and removes the pid file.
  void signalKeepAwake() const;

  /// Tries to restore an engaged lid-closed setting without a prompt, which takes a host that has
  /// the privilege, and asks the system what came of it. Returns whether no setting stayed engaged.
  bool restoreLidClosedWithoutPrompt();

  // ------------------------------------------------- at start-up, before the first enabling call

  /// Tells the keep-awake processes that the pid file names to end (SIGTERM, without waiting), and
  /// removes the file. A process that `ps` does not name as a keep-awake tool is left alone.
  void reconcileOrphanedCaffeinate();

  /// Restores the lid-closed setting when a marker says that an earlier run left it engaged.
  /// Returns whether it is off now, true without a marker.
  bool reconcileStuckDisableSleep();

  // ------------------------------------------------------------------------ lid-closed setting

  /// Prompts unless engaged already. False when declined; the next call prompts again.
  bool engageLidClosedProtection();

  /// What `pmset -g` says about the setting, whoever set it; a failing, empty or blank answer is
  /// `unknown`.
  DisableSleepState disableSleepState() { return disableSleepState(runner_); }
  /// What `pmset -g` says, asked from any thread that may use the runner.
  /// @param runner  runs the command in place of the controller's own
  static DisableSleepState disableSleepState(CommandRunning& runner);
  /// Whether `pmset -g` says that sleep is disabled; no answer counts as no.
  bool isSystemSleepDisabled();

  /// Asks the system and goes by its answer, without a prompt: a setting that is on counts as
  /// engaged, whoever engaged it, one that is off does not; no answer changes nothing. Tells what
  /// came of a prompt. Returns the answer.
  DisableSleepState reconcileLidClosedProtection();

  /// Takes over a setting that something else engaged, so that the next release restores it.
  void adoptDisableSleepEngaged();

  /// Stops the keep-awake process and restores the setting, whether or not it is believed engaged.
  void emergencyRestore();

  // ------------------------------------------------------------------------- files and formats

  /// "caffeinate.pid" in the library's directory under the home directory: the current process's id
  /// and, while one is being replaced, that one's, a line each. Every call reads `HOME`.
  static std::filesystem::path pidFileURL();
  /// "disablesleep.engaged" beside the pid file, an empty file: the setting was engaged and is not
  /// known to be restored. Every call reads `HOME`.
  static std::filesystem::path engagedMarkerURL();

  /// The one word of flags that the keep-awake tool is started with.
  static std::vector<std::string> caffeinateArguments(bool letDisplaySleep);
  /// The ids in the pid file; none when it is missing, unreadable or no UTF-8.
  static std::vector<std::int32_t> readCaffeinatePIDs();
  /// The lines of `text` that are whole numbers of 32 bits, in order; other lines are skipped.
  static std::vector<std::int32_t> parseCaffeinatePIDs(std::string_view text);
  /// Whether the output of `pmset -g` says that sleep is disabled.
  static bool parseSleepDisabled(std::string_view output);

 private:
  /// A keep-awake process and the posture that it was started with; no process: none is wanted.
  struct KeepAwake {
    std::shared_ptr<platform::WatchedChild> process;
    bool letDisplaySleep = false;
  };

  struct Started {
    std::shared_ptr<platform::WatchedChild> process;  ///< none when it failed
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
  /// The one whose word is waited for.
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
