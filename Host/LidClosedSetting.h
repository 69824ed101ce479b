// The lid-closed setting, which outlives every process and is switched behind an administrator
// prompt: engaged and restored with patience for the person who is asked, and looked at afterwards,
// because a prompt that ends well may have done nothing.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "Host/Notices.h"
#include "Host/PromptPause.h"
#include "WakelatchCore/ShellCommand.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

/// Calls come from one thread at a time. Those that may prompt block while the prompt is open;
/// cancelling the controller's runners closes it.
class LidClosedSetting {
 public:
  struct Hooks {
    /// Told what a prompt that opens is for, and nothing when it is closed. Must not block.
    std::function<void(const std::optional<std::string>&)> promptShown;
    /// Whether the controller's runners are cancelled.
    std::function<bool()> isCancelled;
    std::function<Timestamp()> now = platform::now;
    /// Whether a person is asked for a password. Else the setting is this process's own, and the
    /// system lets go of it with the process.
    bool asksPerson = true;
  };

  /// Controller and notifier are owned by the caller.
  LidClosedSetting(SleepController& controller, Notifier& notifier, Hooks hooks)
      : controller_(controller),
        notifier_(notifier),
        hooks_(std::move(hooks)),
        engagePause_(hooks_.asksPerson),
        restorePause_(hooks_.asksPerson) {}

  /// Engaged, or not known to be restored.
  bool isEngaged() const { return controller_.isLidClosedProtectionEngaged(); }

  /// Undoes what an earlier run left engaged. May prompt.
  void startUp();

  /// Prompts unless it is engaged or was refused lately.
  void engage();
  /// The user has switched lid-closed mode off: when he switches it on again, he may be asked.
  void forgetRefusals();

  bool mayAskToRestore() const { return restorePause_.mayAsk(hooks_.now()); }
  /// Restores an engaged setting. Prompts unless the person refused lately.
  void restore();
  /// The same in danger: a prompt need not wait for the end of the pause, but only once.
  void restoreInDanger();
  /// The same for somebody who leaves, whenever he refused before.
  void restoreFinally();
  /// Tries it without a prompt.
  void restoreWithoutPrompt();

  /// For some seconds after a change: looks whether the system has it so. To be called every tick.
  void settle();
  /// For somebody who leaves: waits a moment for what a prompt that was closed may have handed on.
  void awaitSettled();

 private:
  using State = SleepController::DisableSleepState;

  bool prompt(const char* purpose, bool (SleepController::*ask)());
  void askToRestore();
  void changed();
  bool look();
  void noteRestored();

  SleepController& controller_;
  Notifier& notifier_;
  const Hooks hooks_;
  PromptPause engagePause_, restorePause_;
  bool isWanted_ = false;               ///< engaging was the last thing tried, not restoring
  bool isWithoutEffect_ = false;        ///< engaged by our account, off by the system's
  bool isRestoreAllowed_ = false;       ///< the last prompt to restore was
  bool isPromptClosed_ = false;         ///< the change is an engage prompt that we closed
  std::optional<Timestamp> engagedAt_;  ///< when the person last allowed it
  std::optional<Timestamp> changedAt_;  ///< absent: settled
  int looks_ = 0;                       ///< since then
};

}  // namespace wakelatch::host
