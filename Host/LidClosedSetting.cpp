#include "Host/LidClosedSetting.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>

namespace wakelatch::host {
namespace {

constexpr const char* engaging = "lid-closed mode";
constexpr const char* restoring = "lid-closed setting";
/// What a prompt has started takes effect within this time. The system may answer wrongly once;
/// later answers within this time are right.
constexpr double settleSeconds = 10;

}  // namespace

bool LidClosedSetting::prompt(const char* purpose, bool (SleepController::*ask)()) {
  if (hooks_.asksPerson) hooks_.promptShown(purpose);
  const bool isDone = (controller_.*ask)();
  hooks_.promptShown(std::nullopt);
  return isDone;
}

void LidClosedSetting::startUp() {
  std::error_code unreadable;
  const bool isOurs = std::filesystem::exists(SleepController::engagedMarkerURL(), unreadable);
  if (!isOurs) {
    if (!hooks_.asksPerson || !controller_.isSystemSleepDisabled()) return;
    notifier_.tell(
        "the system's sleep is disabled, but not by wakelatch; "
        "to take that over and restore it, stop watching and run: wakelatch restore --adopt");
    return;
  }
  const bool isStale = controller_.disableSleepState() == State::off;
  const bool isRestored = prompt("restoring the lid-closed setting of an earlier run",
                                 &SleepController::reconcileStuckDisableSleep);
  changed();
  if (isRestored) {
    if (isStale) notifier_.tell("the lid-closed setting of an earlier run is off already");
    look();
    return;
  }
  if (!hooks_.isCancelled()) restorePause_.refused(hooks_.now());
  notifier_.problem(restoring,
                    "an earlier run left the lid-closed setting engaged and it could not be "
                    "restored; stop watching and run: wakelatch restore");
}

void LidClosedSetting::engage() {
  isWanted_ = true;
  if (isEngaged() && !isWithoutEffect_) return;
  if (engagedAt_ && !isOver(*engagedAt_, PromptPause::seconds, hooks_.now())) return;
  if (!engagePause_.mayAsk(hooks_.now())) return;
  if (isEngaged() && controller_.reconcileLidClosedProtection() != State::off) {
    look();  // it may have come late
    return;
  }
  isWithoutEffect_ = false;
  // If somebody else has switched the setting on and our prompt is refused, it stays theirs.
  // Without an answer it is taken for off, so that what our prompt may set later is noticed.
  const bool isOthers = controller_.disableSleepState() == State::on;
  const bool isDone =
      prompt("turning the lid-closed setting on", &SleepController::engageLidClosedProtection);
  if (isDone || !isOthers) changed();
  if (isDone) {
    engagedAt_ = hooks_.now();
    engagePause_.forget();  // a clock that was set back may have left a refusal in the future
  }
  if (isDone && isRestoreAllowed_) restorePause_.forget();  // nobody refused to restore this one
  if (!isDone && hooks_.isCancelled()) {                    // nobody refused
    isPromptClosed_ = !isOthers;
    engagePause_.closed(hooks_.now());
    return;
  }
  if (!isDone) engagePause_.refused(hooks_.now());
  if (changedAt_) look();
  if (isDone || isEngaged()) return;
  notifier_.problem(engaging,
                    std::string("lid-closed mode was declined or is not possible here (the log "
                                "says why); ") +
                        (hooks_.asksPerson ? "asked again every 15 minutes, and after lid-closed "
                                             "mode was switched off and on"
                                           : "tried again every minute"));
}

void LidClosedSetting::forgetRefusals() {
  engagePause_.forget();
  engagedAt_.reset();
  notifier_.problem(engaging, "");
}

void LidClosedSetting::restore() {
  isWanted_ = false;
  if (isEngaged() && restorePause_.mayAsk(hooks_.now())) askToRestore();
}

void LidClosedSetting::restoreInDanger() {
  if (!isEngaged() || !restorePause_.mayAskInDanger(hooks_.now())) return;
  restorePause_.askedInDanger(hooks_.now());
  askToRestore();
}

void LidClosedSetting::restoreFinally() {
  if (!isEngaged()) return;
  if (hooks_.asksPerson) {
    notifier_.tell(
        "the lid-closed setting has to be restored: answer the administrator prompt, or stop once "
        "more to leave it engaged");
  }
  askToRestore();
}

void LidClosedSetting::askToRestore() {
  isWanted_ = false;
  // Somebody else may have restored it: then there is nothing to ask for.
  const bool looksRestored = controller_.reconcileLidClosedProtection() == State::off;
  changed();
  if (looksRestored) look();  // one answer may be wrong
  bool isDone = true;
  if (isEngaged()) {
    isDone =
        prompt("restoring the lid-closed setting", &SleepController::releaseLidClosedProtection);
    isRestoreAllowed_ = isDone;
    changed();
    look();
  }
  if (hooks_.isCancelled()) {  // nobody refused
    restorePause_.closed(hooks_.now());
  } else if (!isDone || isEngaged()) {  // the person refused, whatever the system answers now
    restorePause_.refused(hooks_.now());
  }
  if (!isEngaged()) {
    noteRestored();
  } else if (!hooks_.isCancelled()) {
    notifier_.problem(restoring,
                      "the lid-closed setting may still be engaged (asked again later); "
                      "to restore it now, stop watching and run: wakelatch restore");
  }
}

void LidClosedSetting::restoreWithoutPrompt() {
  isWanted_ = false;
  settle();
  if (!isEngaged()) return;
  const bool isRestored = controller_.restoreLidClosedWithoutPrompt();
  changed();
  if (isRestored) noteRestored();
}

void LidClosedSetting::noteRestored() {
  isWithoutEffect_ = false;
  engagedAt_.reset();
  notifier_.problem(restoring, "");
}

void LidClosedSetting::changed() {
  changedAt_ = hooks_.now();
  looks_ = 0;
  isPromptClosed_ = false;
}

bool LidClosedSetting::look() {
  ++looks_;
  const bool wasEngaged = isEngaged();
  if (wasEngaged &&
      isWanted_) {  // when the answer is off, it stays tracked: it may take effect late
    const State state = controller_.disableSleepState();
    if (state == State::unknown) return false;
    isWithoutEffect_ = state == State::off;
    notifier_.problem(engaging, isWithoutEffect_
                                    ? "lid-closed mode was allowed, but the system still sleeps "
                                      "with its lid closed; it is tried again"
                                    : "");
    return true;
  }
  const State state = controller_.reconcileLidClosedProtection();
  if (isEngaged() == wasEngaged) return state != State::unknown;
  changed();  // one answer may be wrong
  if (wasEngaged) {
    noteRestored();
  } else {
    notifier_.tell("the lid-closed setting is on, though it was refused or restored before");
  }
  return true;
}

void LidClosedSetting::settle() {
  if (!changedAt_) return;
  const bool isAnswered = look();
  // A machine that slept meanwhile finds the time over at its first look.
  if (!changedAt_ || !isAnswered || looks_ < 2 || !isOver(*changedAt_, settleSeconds, hooks_.now()))
    return;
  changedAt_.reset();
  if (!isEngaged())
    restorePause_.forget();  // only now: what looked restored at first may not have been
}

void LidClosedSetting::awaitSettled() {
  constexpr int looks = 15;
  constexpr std::chrono::milliseconds pause(100);
  for (int i = 0; i < looks && changedAt_ && isPromptClosed_ && !isEngaged(); ++i) {
    std::this_thread::sleep_for(pause);
    if (!look()) return;  // no answer: the next one would be as long in coming
  }
}

}  // namespace wakelatch::host
