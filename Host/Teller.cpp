#include "Host/Teller.h"

#include <unistd.h>

#include <utility>

#include "Host/Terminal.h"
#include "Host/WatchScreen.h"

namespace wakelatch::host {

Teller::Teller(TickOutput output, std::function<void()> closed)
    : output_(output),
      printer_(std::move(closed)),
      isScreen_(output == TickOutput::people && isScreen(STDOUT_FILENO)) {}

void Teller::tellStateOf(Saver& saver, std::function<Held()> held) {
  const platform::MutexLock lock(mutex_);
  saver_ = &saver;
  held_ = std::move(held);
}

void Teller::tick(Tick tick) {
  const platform::MutexLock lock(mutex_);
  last_ = std::move(tick);
  const StatusReport& report =
      last_->report;  // what was decided on, before it tells anything newer
  if (output_ == TickOutput::json) {
    printer_.line(encode(report, DateCoding::iso8601));
  } else if (output_ == TickOutput::people && !isScreen_ && changes_.isNext(report.decision)) {
    printer_.line(localTime(last_->at) + ' ' + printable(statusLine(report)));
  }
  tellState();
}

void Teller::heldChanged() {
  const platform::MutexLock lock(mutex_);
  tellState();
}

void Teller::stopped(bool isStopped) {
  const platform::MutexLock lock(mutex_);
  if (!last_ || !last_->report.watch) return;
  last_->report.watch->isStopped = isStopped;
  tellState();
}

void Teller::notice(const std::string& text) {
  const platform::MutexLock lock(mutex_);
  const bool isShown = isScreen_;
  // Where standard error goes to the same terminal, it would write over the screen.
  if (!isShown || ::isatty(STDERR_FILENO) == 0) printer_.notice(text);
  if (!isShown) return;
  constexpr std::size_t room = 5;
  notices_.push_back(localTime(platform::now()) + ' ' + text);
  if (notices_.size() > room) notices_.pop_front();
  draw();
}

void Teller::redraw() {
  const platform::MutexLock lock(mutex_);
  if (!isScreen_) return;
  draw();  // for another width
  printer_.redraw();
}

void Teller::endScreen() {
  const platform::MutexLock lock(mutex_);
  isScreen_ = false;
}

void Teller::draw() {
  if (!isScreen_ || !last_) return;
  const TerminalSize size = terminalSize(STDOUT_FILENO);
  const ScreenStyle style{size.columns, size.rows, wantsColor()};
  printer_.screen(watchScreen({.report = last_->report,
                               .now = platform::now(),
                               .graceEndsAt = last_->graceEndsAt,
                               .keptSecondsToday = last_->keptSecondsToday,
                               .notices = notices_},
                              style));
}

void Teller::tellState() {
  if (!last_) return;
  if (saver_ != nullptr && last_->report.watch) {
    last_->report.watch->held = held_();
    saver_->state(*last_->report.watch);
  }
  draw();
}

}  // namespace wakelatch::host
