// Engages and restores the lid-closed setting, which outlives every process and takes an
// administrator prompt to change. A person who refused is not asked again too soon, and the system
// is asked afterwards what came of it, because a prompt that was answered may still have changed
// nothing.
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
    /// Called with what a prompt is for when it opens, and with nothing when it closes. Must not
    /// block.
    std::function<void(const std::optional<std::string>&)> promptShown;
    /// Whether the controller's runners are cancelled.
    std::function<bool()> isCancelled;
    std::function<Timestamp()> now = platform::now;
    /// Whether a person is asked for a password. Otherwise the setting belongs to this process and
    /// ends with it.
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
  /// To be called when the user has switched lid-closed mode off: once it is on again, engage() may
  /// prompt at once.
  void forgetRefusals();

  bool mayAskToRestore() const { return restorePause_.mayAsk(hooks_.now()); }
  /// Restores an engaged setting. Prompts unless the person refused lately.
  void restore();
  /// As restore(), in danger: may prompt once even though the person refused lately.
  void restoreInDanger();
  /// As restore(), when the watch ends: prompts even if the person refused lately.
  void restoreFinally();
  /// Restores an engaged setting if that needs no prompt.
  void restoreWithoutPrompt();

  /// To be called every tick: for some seconds after a change, checks whether the system has
  /// adopted it.
  void settle();
  /// To be called when the watch ends: waits a moment for the change that a prompt may still make
  /// after we closed it.
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
  bool isWanted_ = false;               ///< engaging was tried last, not restoring
  bool isWithoutEffect_ = false;        ///< we count it as engaged, the system says it is off
  bool isRestoreAllowed_ = false;       ///< the last prompt to restore was allowed
  bool isPromptClosed_ = false;         ///< the change is that of an engage prompt which we closed
  std::optional<Timestamp> engagedAt_;  ///< when the person last allowed it
  std::optional<Timestamp> changedAt_;  ///< absent: settled
  int looks_ = 0;                       ///< how often the system was asked since then
};

}  // namespace wakelatch::host
