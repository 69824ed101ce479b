#include "Host/LidClosedSetting.h"

#include <filesystem>
#include <system_error>
#include <utility>

namespace wakelatch::host {
namespace {

using State = SleepController::DisableSleepState;

constexpr const char* engaging = "lid-closed mode";
constexpr const char* restoring = "lid-closed setting";
/// What a prompt started ends within seconds, and one wrong answer is followed by a right one.
constexpr double settleSeconds = 10;

}  // namespace

LidClosedSetting::LidClosedSetting(SleepController& controller, Notifier& notifier,
                                   PromptShown promptShown, IsCancelled isCancelled)
    : controller_(controller),
      notifier_(notifier),
      promptShown_(std::move(promptShown)),
      isCancelled_(std::move(isCancelled)) {}

bool LidClosedSetting::prompt(const char* purpose, bool (SleepController::*ask)()) {
  promptShown_(purpose);
  const bool isDone = (controller_.*ask)();
  promptShown_(std::nullopt);
  return isDone;
}

void LidClosedSetting::startUp(Timestamp now) {
  std::error_code unreadable;
  const bool isOurs = std::filesystem::exists(SleepController::engagedMarkerURL(), unreadable);
  if (!isOurs) {
    if (!controller_.isSystemSleepDisabled()) return;
    notifier_.tell(
        "the system's sleep is disabled, but not by wakelatch; "
        "to take that over and restore it, stop watching and run: wakelatch restore --adopt");
    return;
  }
  if (prompt("restoring the lid-closed setting of an earlier run",
             &SleepController::reconcileStuckDisableSleep) &&
      controller_.reconcileLidClosedProtection() != State::on) {
    noteRestored(now);
    return;
  }
  if (!isCancelled_()) restorePause_.refused(now);
  notifier_.problem(restoring,
                    "an earlier run left the lid-closed setting engaged and it could not be "
                    "restored; stop watching and run: wakelatch restore");
}

void LidClosedSetting::engage(Timestamp now) {
  if (isEngaged() && !isWithoutEffect_) return;
  if (!engagePause_.mayAsk(now)) return;
  if (std::exchange(isWithoutEffect_, false) &&
      controller_.reconcileLidClosedProtection() != State::off) {
    notifier_.problem(engaging, "");
    return;
  }
  // Who else has switched it on stays its owner when our prompt is refused.
  const bool wasOn = controller_.isSystemSleepDisabled();
  if (prompt("turning the lid-closed setting on", &SleepController::engageLidClosedProtection)) {
    isWithoutEffect_ = controller_.disableSleepState() == State::off;
    if (isWithoutEffect_) engagePause_.refused(now);
    notifier_.problem(engaging, isWithoutEffect_
                                    ? "lid-closed mode was allowed, but the system still sleeps "
                                      "with its lid closed; tried again in 15 minutes"
                                    : "");
    return;
  }
  if (!wasOn) unsettledSince_ = now;
  if (isCancelled_()) return;  // nobody refused
  settle(now);
  if (isEngaged()) return;
  engagePause_.refused(now);
  notifier_.problem(engaging,
                    "lid-closed mode was declined or is not possible here (the log says why); "
                    "asked again every 15 minutes, and after lid-closed mode was switched off "
                    "and on");
}

void LidClosedSetting::forgetRefusals() {
  engagePause_.forget();
  notifier_.problem(engaging, "");
}

void LidClosedSetting::restore(Timestamp now) {
  if (isEngaged() && restorePause_.mayAsk(now)) askToRestore(now);
}

void LidClosedSetting::restoreInDanger(Timestamp now) {
  if (!isEngaged() || !restorePause_.mayAskInDanger(now)) return;
  restorePause_.askedInDanger(now);
  askToRestore(now);
}

void LidClosedSetting::restoreFinally(Timestamp now) {
  if (!isEngaged()) return;
  notifier_.tell(
      "the lid-closed setting has to be restored: answer the administrator prompt, or stop once "
      "more to leave it engaged");
  askToRestore(now);
}

void LidClosedSetting::askToRestore(Timestamp now) {
  // Somebody else may have restored it: then there is nothing to ask for.
  if (controller_.reconcileLidClosedProtection() != State::off &&
      prompt("restoring the lid-closed setting", &SleepController::releaseLidClosedProtection)) {
    controller_.reconcileLidClosedProtection();
  }
  if (!isEngaged()) {
    noteRestored(now);
    return;
  }
  if (isCancelled_()) return;  // nobody refused
  restorePause_.refused(now);
  notifier_.problem(restoring,
                    "the lid-closed setting may still be engaged (asked again in 15 minutes); "
                    "to restore it now, stop watching and run: wakelatch restore");
}

void LidClosedSetting::restoreWithoutPrompt(Timestamp now) {
  settle(now);
  if (isEngaged() && controller_.restoreLidClosedWithoutPrompt()) noteRestored(now);
}

void LidClosedSetting::noteRestored(Timestamp now) {
  isWithoutEffect_ = false;
  unsettledSince_ = now;
  restorePause_.forget();
  notifier_.problem(restoring, "");
}

void LidClosedSetting::settle(Timestamp now) {
  if (isEngaged()) unsettledSince_.reset();
  if (!unsettledSince_) return;
  const bool isOn = controller_.reconcileLidClosedProtection() == State::on;
  if (isOn) {
    notifier_.tell("the lid-closed setting is on, though it was refused or restored before");
  }
  if (isOn || isOver(*unsettledSince_, settleSeconds, now)) unsettledSince_.reset();
}

}  // namespace wakelatch::host
