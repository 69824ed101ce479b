// The lid-closed setting, which outlives every process and is switched behind an administrator
// prompt: engaged and restored with patience for the person who is asked, and looked at afterwards,
// because a prompt that ends well may have done nothing.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Host/Notices.h"
#include "Host/PromptPause.h"
#include "WakelatchCore/ShellCommand.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

/// Calls come from one thread at a time. Those that say so block while a prompt is open; cancelling
/// the controller's runners ends it, and what it may have done is looked at in the next calls.
class LidClosedSetting {
 public:
  /// Told what a prompt that opens is for, and nothing when it is closed. Must not block.
  using PromptShown = std::function<void(const std::optional<std::string>&)>;
  /// Whether the controller's runners are cancelled.
  using IsCancelled = std::function<bool()>;

  /// Controller and notifier are owned by the caller.
  LidClosedSetting(SleepController& controller, Notifier& notifier, PromptShown promptShown,
                   IsCancelled isCancelled);

  /// Engaged, or not known to be restored.
  bool isEngaged() const { return controller_.isLidClosedProtectionEngaged(); }

  /// Undoes what an earlier run left engaged. May prompt.
  void startUp(Timestamp now);

  /// Prompts unless it is engaged or was refused lately.
  void engage(Timestamp now);
  /// The user has switched lid-closed mode off: when he switches it on again, he may be asked.
  void forgetRefusals();

  bool mayAskToRestore(Timestamp now) const { return restorePause_.mayAsk(now); }
  /// Restores an engaged setting. Prompts unless the person refused lately.
  void restore(Timestamp now);
  /// The same in danger: a prompt need not wait for the end of the pause, but only once.
  void restoreInDanger(Timestamp now);
  /// The same for somebody who leaves, whenever he refused before.
  void restoreFinally(Timestamp now);
  /// Tries it without a prompt.
  void restoreWithoutPrompt(Timestamp now);

  /// For some seconds after a change: looks whether the system really has it so.
  void settle(Timestamp now);

 private:
  bool prompt(const char* purpose, bool (SleepController::*ask)());
  void askToRestore(Timestamp now);
  void noteRestored(Timestamp now);

  SleepController& controller_;
  Notifier& notifier_;
  const PromptShown promptShown_;
  const IsCancelled isCancelled_;
  PromptPause engagePause_, restorePause_;
  bool isWithoutEffect_ = false;             ///< engaged by our account, off by the system's
  std::optional<Timestamp> unsettledSince_;  ///< what the last prompt did may yet show
};

}  // namespace wakelatch::host
