#include "Host/KeepAwake.h"

#include <utility>

namespace wakelatch::host {
namespace {

constexpr const char* sleeping = "sleep";  // the topic of its notices

}  // namespace

Wish makeWish(const GuardDecision& decision, const GuardSettings& settings,
              const PowerSnapshot& power, LidState lidState, ThermalState thermalState,
              Timestamp now) {
  const bool isBatteryLow =
      !power.isOnACPower && (!power.batteryPercent ||
                             *power.batteryPercent <= settings.batteryProfile.batteryCutoffPercent);
  return {.decision = decision,
          .isDanger = isBatteryLow || thermalState == ThermalState::critical,
          .keepAwakeWithLidClosed = settings.keepAwakeWithLidClosed,
          .letDisplaySleep = settings.letDisplaySleep,
          .lidState = lidState,
          .at = now};
}

KeepAwake::KeepAwake(SleepController& controller, Notifier& notifier, double releaseDelaySeconds,
                     bool toolGivesWord, Hooks hooks)
    : controller_(controller),
      notifier_(notifier),
      hooks_(std::move(hooks)),
      tool_(controller, notifier, toolGivesWord),
      lidClosed_(controller, notifier, hooks_),
      hold_(releaseDelaySeconds) {}

void KeepAwake::apply(const Wish& wish) {
  if (wish.isToolEnded) tool_.stop();
  tool_.look(wish.at);
  if (wish.isDanger && !wish.decision.shouldPreventSleep)
    tool_.stop();  // first, because what follows may hang
  lidClosed_.settle();
  if (!wish.keepAwakeWithLidClosed) lidClosed_.forgetRefusals();
  if (!wish.isDanger) {
    dangerSleepAt_.reset();
    dangerRestoreAt_.reset();
  }
  if (wish.decision.shouldPreventSleep) {
    hold_.forget();
    pendingSleep_.reset();
    prevent(wish);
    return;
  }
  // A decision asks for sleep only once, and a machine that is held awake cannot sleep yet.
  // Somebody who moves the lid meanwhile uses the machine: the sleep is dropped.
  if (wish.decision.shouldSleepNow && !pendingSleep_) pendingSleep_ = {.lidState = wish.lidState};
  if (pendingSleep_ && hasMoved(pendingSleep_->lidState, wish.lidState)) pendingSleep_.reset();

  if (wish.isDanger) {
    hold_.forget();
    escape(wish);
  } else if (hold_.holds(
                 wish.decision.status,
                 // A setting that could not be restored must not start another delay.
                 isLidClosedWanted_ && lidClosed_.isEngaged() && lidClosed_.mayAskToRestore(),
                 wish.at)) {
    wantTool(wish);
  } else {
    release(wish);
  }
}

/// When this wish is cancelled, the tool that was being started is ended with it; that is no
/// failure of the tool.
void KeepAwake::wantTool(const Wish& wish) {
  if (hooks_.isCancelled()) return;
  tool_.want(wish.letDisplaySleep, wish.at);
  if (!hooks_.isCancelled()) tool_.tellProblem();
}

void KeepAwake::prevent(const Wish& wish) {
  wantTool(wish);
  if (hooks_.toolSettled) hooks_.toolSettled();
  isLidClosedWanted_ = wish.keepAwakeWithLidClosed;
  if (isLidClosedWanted_) {
    lidClosed_.engage();
  } else {
    lidClosed_.restore();  // a machine that goes into a bag now must sleep
  }
}

void KeepAwake::release(const Wish& wish) {
  tool_.stop();
  isLidClosedWanted_ = false;
  lidClosed_.restore();
  if (!hooks_.isNewest()) return;  // the newer wish decides about the sleep as well
  sleepIfAskedFor(wish);
}

void KeepAwake::escape(const Wish& wish) {
  const auto isDue = [&](const std::optional<Timestamp>& last) {
    return !last || isOver(*last, dangerPauseSeconds, wish.at);
  };
  isLidClosedWanted_ = false;
  if (lidClosed_.isEngaged() && isDue(dangerRestoreAt_)) {
    dangerRestoreAt_ = wish.at;
    lidClosed_.restoreWithoutPrompt();
  }
  const bool isSleepWanted = pendingSleep_.has_value();
  if (isSleepWanted && isDue(dangerSleepAt_)) {
    dangerSleepAt_ = wish.at;
    sleepIfAskedFor(wish);
  }
  if (!lidClosed_.isEngaged()) return;
  lidClosed_.restoreInDanger();
  if (lidClosed_.isEngaged() || !isSleepWanted) return;
  pendingSleep_ = {.lidState = wish.lidState};  // only now the machine can sleep
  dangerSleepAt_.reset();
  if (!hooks_.isNewest()) return;
  dangerSleepAt_ = wish.at;
  sleepIfAskedFor(wish);
}

void KeepAwake::sleepIfAskedFor(const Wish& wish) {
  if (!pendingSleep_) return;
  PendingSleep& sleep = *pendingSleep_;
  if (sleep.refusedSince) {
    if (!isOver(sleep.triedAt, refusedSleepPauseSeconds, wish.at)) return;
    const bool isPatienceOver = isOver(*sleep.refusedSince, refusedSleepPatienceSeconds, wish.at);
    if (isPatienceOver && !wish.isDanger && wish.lidState != LidState::closed) {
      notifier_.problem(sleeping, "this machine stays awake: its sleep was refused for too long");
      pendingSleep_.reset();
      return;
    }
  } else {
    notifier_.tell("putting this machine to sleep: " + wish.decision.reason);
  }
  controller_.sleepNow();
  if (hooks_.isCancelled()) return;  // left to the wish that cancelled it
  const auto failure = controller_.sleepFailure();
  notifier_.problem(sleeping, failure ? "this machine cannot be put to sleep (tried again every "
                                        "minute): " +
                                            *failure
                                      : "");
  if (!failure) {
    pendingSleep_.reset();
    return;
  }
  if (!sleep.refusedSince) sleep.refusedSince = wish.at;
  sleep.triedAt = wish.at;
}

bool KeepAwake::letGo() {
  tool_.stop();
  lidClosed_.awaitSettled();
  hold_.forget();
  pendingSleep_.reset();
  isLidClosedWanted_ = false;
  lidClosed_.restoreWithoutPrompt();
  return !lidClosed_.isEngaged();
}

bool KeepAwake::restore() {
  if (!letGo()) lidClosed_.restoreFinally();
  return !lidClosed_.isEngaged();
}

void KeepAwake::leaveEngaged() {
  tool_.stop();
  lidClosed_.awaitSettled();
  if (!hooks_.asksPerson) lidClosed_.restoreWithoutPrompt();  // it ends with this process
  if (!lidClosed_.isEngaged()) return;
  notifier_.tell(
      "the lid-closed setting stays engaged, because restoreNormalSleepOnQuit is off: this machine "
      "does not sleep; to restore it, run: wakelatch restore");
}

Held KeepAwake::held() const {
  const bool isEngaged = lidClosed_.isEngaged();
  return {.isToolWanted = tool_.isWanted(),
          .letDisplaySleep = controller_.appliedLetDisplaySleep(),
          .isToolProven = tool_.isProven(),
          .isLidClosedEngaged = isEngaged,
          .isRestoreOpen = isEngaged && !isLidClosedWanted_,
          .since = {},
          .releaseDueAt = hold_.dueAt(),
          .prompt = {},
          .toolProblem = tool_.problem()};
}

}  // namespace wakelatch::host
