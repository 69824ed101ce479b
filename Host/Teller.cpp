#include "Host/Teller.h"

#include <unistd.h>

#include <utility>

#include "Host/Terminal.h"
#include "Host/TimeText.h"

namespace wakelatch::host {

Teller::Teller(TickOutput output, std::function<void()> closed)
    : output_(output),
      printer_(std::move(closed)),
      isScreen_(output == TickOutput::people && isScreen(STDOUT_FILENO)),
      lines_(output == TickOutput::json) {}

void Teller::tellStateOf(Saver& saver, std::function<Held()> held) {
  const platform::MutexLock lock(mutex_);
  saver_ = &saver;
  held_ = std::move(held);
}

void Teller::tick(WatchTick tick) {
  const platform::MutexLock lock(mutex_);
  last_ = std::move(tick);
  if (output_ != TickOutput::none && !isScreen_) {
    // Before tellState(), which replaces what was decided on by something newer.
    if (auto line = lines_.next(last_->report, last_->at)) printer_.line(std::move(*line));
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
  // Where standard error goes to the same terminal, it would write over the screen.
  if (!isScreen_ || ::isatty(STDERR_FILENO) == 0) printer_.notice(text);
  if (!isScreen_) return;
  constexpr std::size_t most = 5;
  notices_.push_back(localTime(platform::now()) + ' ' + text);
  if (notices_.size() > most) notices_.pop_front();
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
  printer_.screen(watchScreen(*last_, platform::now(), notices_, terminalStyle(STDOUT_FILENO)));
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
