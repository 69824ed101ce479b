#include "Host/KeepAwakeTool.h"

#include <cmath>
#include <string>

#include "Host/PromptPause.h"

namespace wakelatch::host {
namespace {

constexpr const char* topic = "keep-awake tool";
constexpr const char* cannot = "this machine cannot be kept awake: ";

}  // namespace

void KeepAwakeTool::want(bool letDisplaySleep, Timestamp now) {
  look(now);
  isWanted_ = true;
  if (pausedSince_ &&
      !isOver(*pausedSince_, provenSeconds_ > 0 ? pauseSeconds : shortestPauseSeconds, now))
    return;
  const auto before = controller_.appliedLetDisplaySleep();
  controller_.enableSleepPrevention(/*allowLidClosed=*/false, letDisplaySleep);
  if (!controller_.isSleepPreventionEnabled()) return;
  // A change of posture starts a new tool as well. It may have ended already; look() will notice.
  const bool isReplaced =
      before != letDisplaySleep && controller_.appliedLetDisplaySleep() != before;
  if (!before || isReplaced) startedAt_ = now;
  if (provenSeconds_ == 0) look(now);
}

void KeepAwakeTool::tellProblem() {
  const auto problem = this->problem();
  if (!problem) return;
  const bool isHeld = controller_.isSleepPreventionEnabled();
  notifier_.problem(topic, (isHeld ? "this machine is kept awake, but " : cannot) + *problem);
}

std::optional<std::string> KeepAwakeTool::problem() const {
  if (!isWanted_) return std::nullopt;
  if (const auto failure = controller_.keepAwakeFailure()) {
    return isRunning() ? "with its display as before: " + *failure : *failure;
  }
  std::string word = controller_.keepAwakeWord();
  if (word.empty() || word == "ready") return std::nullopt;
  return word;
}

void KeepAwakeTool::stop() {
  controller_.stopKeepAwake();
  isWanted_ = false;
  startedAt_.reset();
}

void KeepAwakeTool::look(Timestamp now) {
  if (!startedAt_) return;
  const double age = secondsBetween(*startedAt_, now);
  const bool isOld = isOver(*startedAt_, provenSeconds_, now);
  if (isRunning()) {
    if (!isOld) return;
    isTrusted_ = true;
    pausedSince_.reset();
    if (isOver(*startedAt_, soundSeconds, now) && !problem()) notifier_.problem(topic, "");
    return;
  }
  const bool isShort = !isOver(*startedAt_, shortestPauseSeconds, now);
  startedAt_.reset();
  if (isOld) {
    notifier_.problem(topic, "the keep-awake tool has ended by itself; starting it again");
    if (isShort) pausedSince_ = now;
    return;
  }
  isTrusted_ = false;
  if (!pausedSince_) {
    notifier_.problem(topic, std::string(cannot) + "the keep-awake tool ended " +
                                 std::to_string(std::lround(age)) +
                                 " s after its start; trying again once a minute");
  }
  pausedSince_ = now;
  controller_.stopKeepAwake();  // it left its id in the pid file
}

}  // namespace wakelatch::host
