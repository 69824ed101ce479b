#include "Host/KeepAwakeTool.h"

#include <cmath>
#include <string>

#include "Host/PromptPause.h"

namespace wakelatch::host {
namespace {

constexpr const char* topic = "keep-awake tool";

}  // namespace

void KeepAwakeTool::want(bool letDisplaySleep, Timestamp now) {
  look(now);
  isWanted_ = true;
  if (pausedSince_ && !isOver(*pausedSince_, pauseSeconds, now)) return;
  const auto before = controller_.appliedLetDisplaySleep();
  controller_.enableSleepPrevention(/*allowLidClosed=*/false, letDisplaySleep);
  if (!controller_.isSleepPreventionEnabled()) {
    notifier_.problem(
        topic, "the keep-awake tool could not be started (the log says why); trying every tick");
    return;
  }
  // A change of posture is a start as well. It may have ended again already: look() will see that.
  const bool isReplaced =
      before != letDisplaySleep && controller_.appliedLetDisplaySleep() != before;
  if (!before || isReplaced) startedAt_ = now;
}

void KeepAwakeTool::stop() {
  controller_.stopKeepAwake();
  isWanted_ = false;
  startedAt_.reset();
}

void KeepAwakeTool::look(Timestamp now) {
  if (!startedAt_) return;
  const double age = secondsBetween(*startedAt_, now);
  const bool isOld = isOver(*startedAt_, provenSeconds, now);
  if (isRunning()) {
    if (!isOld) return;
    isTrusted_ = true;
    pausedSince_.reset();
    if (isOver(*startedAt_, soundSeconds, now)) notifier_.problem(topic, "");
    return;
  }
  startedAt_.reset();
  if (isOld) {
    notifier_.problem(topic, "the keep-awake tool has ended by itself; starting it again");
    return;
  }
  isTrusted_ = false;
  if (!pausedSince_) {
    notifier_.problem(topic, "this system cannot be kept awake: the keep-awake tool ended " +
                                 std::to_string(std::lround(age)) +
                                 " s after its start; trying again once a minute");
  }
  pausedSince_ = now;
  controller_.stopKeepAwake();  // it left its id in the pid file
}

}  // namespace wakelatch::host
