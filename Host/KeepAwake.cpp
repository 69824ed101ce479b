#include "Host/KeepAwake.h"

#include <filesystem>
#include <utility>

#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {
namespace {

/// Whether `seconds` have passed since `start`; a clock that was set back counts as passed.
bool isOver(Timestamp start, double seconds, Timestamp now) {
  const double elapsed = secondsBetween(start, now);
  return elapsed < 0 || elapsed >= seconds;
}

}  // namespace

bool KeepAwake::Prompt::mayAsk(Timestamp now) const {
  return !refusedAt_ || isOver(*refusedAt_, promptPauseSeconds, now);
}

KeepAwake::KeepAwake(SleepController& controller, double releaseDelaySeconds, Notice notice)
    : controller_(controller),
      releaseDelaySeconds_(releaseDelaySeconds),
      notice_(std::move(notice)) {}

void KeepAwake::startUp(Timestamp now) {
  controller_.reconcileOrphanedCaffeinate();
  const bool isOurs = std::filesystem::exists(SleepController::engagedMarkerURL());
  if (!controller_.reconcileStuckDisableSleep()) {
    restorePrompt_.refused(now);
    notice_(
        "an earlier run left the lid-closed setting engaged and it could not be restored; "
        "run: wakelatch restore");
  } else if (!isOurs && controller_.isSystemSleepDisabled()) {
    notice_(
        "the system's sleep is disabled, but not by wakelatch; "
        "to take that over and restore it, run: wakelatch restore --adopt");
  }
}

void KeepAwake::apply(const GuardDecision& decision, const GuardSettings& settings, Timestamp now) {
  checkTool(now);
  if (!settings.keepAwakeWithLidClosed) {
    engagePrompt_.forget();
    // Switched off while engaged: enabling alone would keep it.
    if (controller_.isLidClosedProtectionEngaged()) release(now);
  }
  if (decision.shouldPreventSleep) {
    releasePendingSince_.reset();
    sleepWhenReleased_ = false;
    enable(settings, now);
    return;
  }
  // Asked for once only; a machine held awake cannot sleep yet.
  if (decision.shouldSleepNow) sleepWhenReleased_ = true;
  const auto plan =
      SleepReleasePolicy::planRelease(decision.status, controller_.isLidClosedProtectionEngaged(),
                                      releasePendingSince_, now, releaseDelaySeconds_);
  releasePendingSince_ = plan.pendingSince;
  if (plan.isHold()) {
    enable(settings, now);
    return;
  }
  release(now);
  if (std::exchange(sleepWhenReleased_, false)) controller_.sleepNow();
}

void KeepAwake::enable(const GuardSettings& settings, Timestamp now) {
  if (toolPausedSince_ && !isOver(*toolPausedSince_, toolPauseSeconds, now)) return;
  const bool wasRunning = isToolRunning();
  const bool allowLidClosed =
      settings.keepAwakeWithLidClosed &&
      (controller_.isLidClosedProtectionEngaged() || engagePrompt_.mayAsk(now));
  const bool lidStepDone =
      controller_.setSleepPrevention(true, allowLidClosed, settings.letDisplaySleep);
  if (!lidStepDone) {
    engagePrompt_.refused(now);
    notice_(
        "lid-closed mode was declined; the machine stays awake with its lid open only "
        "(asked again in 15 minutes, or after lid-closed mode was switched off and on)");
  }
  if (!wasRunning && isToolRunning()) toolStartedAt_ = now;
  const bool failed = !controller_.isSleepPreventionEnabled();
  if (failed && !launchFailureNoticed_) {
    notice_("the keep-awake tool could not be started (the log says why); trying every tick");
  }
  launchFailureNoticed_ = failed;
}

void KeepAwake::release(Timestamp now) {
  const bool engaged = controller_.isLidClosedProtectionEngaged();
  if (engaged && !isToolRunning() && !restorePrompt_.mayAsk(now)) return;
  if (controller_.setSleepPrevention(false, false, false)) {
    restorePrompt_.forget();
    return;
  }
  restorePrompt_.refused(now);
  notice_(
      "the lid-closed setting may still be engaged (asked again in 15 minutes); "
      "to restore it now, stop watching and run: wakelatch restore");
}

void KeepAwake::checkTool(Timestamp now) {
  if (!toolStartedAt_) return;
  if (isToolRunning()) {
    if (isOver(*toolStartedAt_, earlyEndSeconds, now)) {
      toolStartedAt_.reset();
      toolPausedSince_.reset();
    }
    return;
  }
  toolStartedAt_.reset();
  if (!controller_.isSleepPreventionEnabled()) return;  // it was stopped, not lost
  if (!toolPausedSince_) {
    notice_(
        "this system cannot be kept awake: the keep-awake tool ended right after its start; "
        "trying again once a minute");
  }
  toolPausedSince_ = now;
  // With nothing running, nothing is in effect, unless the lid-closed setting is.
  if (!controller_.isLidClosedProtectionEngaged()) controller_.restoreNormalSleep();
}

bool KeepAwake::restore() {
  return controller_.restoreNormalSleep();
}

}  // namespace wakelatch::host
