#include "Host/KeepAwake.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {
namespace {

/// Whether `seconds` have passed since `start`; a clock that was set back counts as passed.
bool isOver(Timestamp start, double seconds, Timestamp now) {
  const double elapsed = secondsBetween(start, now);
  return elapsed < 0 || elapsed >= seconds;
}

constexpr std::chrono::duration<double> earlyEnd(KeepAwake::earlyEndSeconds);
constexpr std::chrono::duration<double> toolPause(KeepAwake::toolPauseSeconds);

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
  std::error_code unreadable;
  const bool isOurs = std::filesystem::exists(SleepController::engagedMarkerURL(), unreadable);
  if (!controller_.reconcileStuckDisableSleep()) {
    restorePrompt_.refused(now);
    notice_(
        "an earlier run left the lid-closed setting engaged and it could not be restored; "
        "stop watching and run: wakelatch restore");
  } else if (!isOurs && controller_.isSystemSleepDisabled()) {
    notice_(
        "the system's sleep is disabled, but not by wakelatch; "
        "to take that over and restore it, stop watching and run: wakelatch restore --adopt");
  }
}

void KeepAwake::apply(const GuardDecision& decision, const GuardSettings& settings,
                      LidState lidState, ThermalState thermalState, Timestamp now) {
  checkTool();
  if (!settings.keepAwakeWithLidClosed) {
    engagePrompt_.forget();
    engageFailureNoticed_ = false;
    // Switched off while engaged: a machine that goes into a bag now must sleep.
    if (controller_.isLidClosedProtectionEngaged() && restorePrompt_.mayAsk(now)) {
      noteRestore(controller_.releaseLidClosedProtection(), now);
    }
  }
  if (decision.shouldPreventSleep) {
    releasePendingSince_.reset();
    sleepWhenReleased_.reset();
    enable(settings, now);
    return;
  }
  // Asked for once only, and a machine held awake cannot sleep yet. Who moves the lid meanwhile
  // has taken over.
  if (decision.shouldSleepNow) sleepWhenReleased_ = lidState;
  if (sleepWhenReleased_ != lidState) sleepWhenReleased_.reset();

  if (releasePendingSince_ > now) releasePendingSince_ = now;  // the clock was set back
  const auto plan =
      SleepReleasePolicy::planRelease(decision.status, controller_.isLidClosedProtectionEngaged(),
                                      releasePendingSince_, now, releaseDelaySeconds_);
  // What could not be restored is no reason to hold on for another delay, and to ask again then.
  if (plan.isHold() && thermalState != ThermalState::critical && restorePrompt_.mayAsk(now)) {
    releasePendingSince_ = plan.pendingSince;
    enable(settings, now);
    return;
  }
  releasePendingSince_.reset();
  release(now);
  if (sleepWhenReleased_) controller_.sleepNow();
  sleepWhenReleased_.reset();
}

void KeepAwake::enable(const GuardSettings& settings, Timestamp now) {
  const auto steadyNow = std::chrono::steady_clock::now();
  if (toolPausedSince_ && steadyNow - *toolPausedSince_ < toolPause) return;
  const bool wasRunning = isToolRunning();
  const bool allowLidClosed =
      settings.keepAwakeWithLidClosed &&
      (controller_.isLidClosedProtectionEngaged() || engagePrompt_.mayAsk(now));
  const bool lidStepDone =
      controller_.setSleepPrevention(true, allowLidClosed, settings.letDisplaySleep);
  if (!lidStepDone) {
    engagePrompt_.refused(now);
    if (!std::exchange(engageFailureNoticed_, true)) {
      notice_(
          "lid-closed mode was declined or is not possible here (the log says why); asked again "
          "every 15 minutes, and after lid-closed mode was switched off and on");
    }
  } else if (allowLidClosed) {
    engageFailureNoticed_ = false;
  }
  const bool failed = !controller_.isSleepPreventionEnabled();
  // It may be gone again already: checkTool() will see that.
  if (!wasRunning && !failed) toolStartedAt_ = std::chrono::steady_clock::now();
  if (failed && !launchFailureNoticed_) {
    notice_("the keep-awake tool could not be started (the log says why); trying every tick");
  }
  launchFailureNoticed_ = failed;
}

void KeepAwake::release(Timestamp now) {
  const bool engaged = controller_.isLidClosedProtectionEngaged();
  if (engaged && !isToolRunning() && !restorePrompt_.mayAsk(now)) return;
  noteRestore(controller_.setSleepPrevention(false, false, false), now);
}

void KeepAwake::noteRestore(bool restored, Timestamp now) {
  if (restored) {
    restorePrompt_.forget();
    return;
  }
  restorePrompt_.refused(now);
  notice_(
      "the lid-closed setting may still be engaged (asked again in 15 minutes); "
      "to restore it now, stop watching and run: wakelatch restore");
}

void KeepAwake::checkTool() {
  if (!toolStartedAt_) return;
  const auto now = std::chrono::steady_clock::now();
  if (isToolRunning()) {
    if (now - *toolStartedAt_ < earlyEnd) return;
    toolStartedAt_.reset();
    toolPausedSince_.reset();
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

std::optional<Timestamp> KeepAwake::releaseDueAt() const {
  if (!releasePendingSince_) return std::nullopt;
  return after(*releasePendingSince_, releaseDelaySeconds_);
}

bool KeepAwake::restore() {
  return controller_.restoreNormalSleep();
}

}  // namespace wakelatch::host
