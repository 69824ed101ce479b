#include "Host/Printer.h"

#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include "Host/Terminal.h"
#include "Platform/ChildProcess.h"
#include "Platform/Thread.h"

namespace wakelatch::host {
namespace {

/// A pipe that poll() calls writable takes this much without waiting.
constexpr std::size_t chunk = PIPE_BUF;

std::string notice(const std::string& text) {
  return "wakelatch: " + printable(text) + '\n';
}

/// Tells that texts of one kind were dropped.
std::string droppedNotice(std::int64_t count, const char* kind) {
  return notice(counted(count, kind) + (count == 1 ? " was" : " were") +
                " dropped, because nobody read them");
}

}  // namespace

Printer::Printer(std::function<void()> closed)
    : closed_(std::move(closed)),
      wakeUp_(platform::openPipe()),
      out_{STDOUT_FILENO, {}},
      err_{STDERR_FILENO, {}} {
  for (const auto* end : {&wakeUp_.readEnd, &wakeUp_.writeEnd}) {
    ::fcntl(end->get(), F_SETFL, O_NONBLOCK);
  }
  thread_ = platform::startThread("printer", [this] { run(); });
}

Printer::~Printer() {
  {
    const platform::MutexLock lock(mutex_);
    isEnding_ = true;
    changed();
  }
  thread_.join();
}

void Printer::Queue::push(std::string text) {
  texts.push_back(std::move(text));
  if (texts.size() <= capacity) return;
  texts.pop_front();
  ++droppedCount;
}

void Printer::line(std::string text) {
  const platform::MutexLock lock(mutex_);
  lines_.push(std::move(text) + '\n');
  changed();
}

void Printer::notice(const std::string& text) {
  const platform::MutexLock lock(mutex_);
  notices_.push(host::notice(text));
  changed();
}

void Printer::screen(std::vector<std::string> lines) {
  const platform::MutexLock lock(mutex_);
  screen_ = std::move(lines);
  changed();
}

void Printer::redraw() {
  const platform::MutexLock lock(mutex_);
  fromTheTop_ = true;
  changed();
}

bool Printer::finish(double seconds) {
  const auto deadline = platform::deadlineIn(seconds);
  platform::MutexLock lock(mutex_);
  while (!isIdle_) {
    if (!written_.waitUntil(lock, deadline)) return false;
  }
  return true;
}

/// Wakes the thread; never blocks, since a full pipe wakes it too.
void Printer::changed() {
  isIdle_ = false;
  [[maybe_unused]] const ssize_t written = ::write(wakeUp_.writeEnd.get(), "", 1);
}

/// Takes what is to be written next to each stream that has nothing left. False at the end.
bool Printer::refill() {
  const platform::MutexLock lock(mutex_);
  if (isEnding_) return false;
  if (!out_.isPending()) {
    out_.written = 0;
    out_.text.clear();
    if (isClosed_) {
      lines_.texts.clear();
      screen_.reset();
    } else if (!lines_.texts.empty()) {
      if (const auto count = std::exchange(lines_.droppedCount, 0); count > 0) {
        notices_.texts.push_front(droppedNotice(count, "line"));
      }
      out_.text = std::move(lines_.texts.front());
      lines_.texts.pop_front();
    } else if ((screen_ && *screen_ != drawn_) || (fromTheTop_ && !drawn_.empty())) {
      std::vector<std::string> lines = screen_ ? std::move(*screen_) : drawn_;
      out_.text = drawing(drawn_.size(), lines, fromTheTop_);
      drawn_ = std::move(lines);
      screen_.reset();
    } else {
      screen_.reset();
    }
    fromTheTop_ = fromTheTop_ && !lines_.texts.empty();
  }
  if (!err_.isPending()) {
    err_.written = 0;
    err_.text.clear();
    if (const auto count = std::exchange(notices_.droppedCount, 0); count > 0) {
      err_.text = droppedNotice(count, "notice");
    } else if (!notices_.texts.empty()) {
      err_.text = std::move(notices_.texts.front());
      notices_.texts.pop_front();
    }
  }
  if (!out_.isPending() && !err_.isPending()) {
    isIdle_ = true;
    written_.notifyAll();
  }
  return true;
}

void Printer::run() {
  while (refill()) {
    // A stream with nothing to write is left out: a negative descriptor is skipped.
    std::array<pollfd, 3> watched{{{wakeUp_.readEnd.get(), POLLIN, 0},
                                   {out_.isPending() ? out_.fd : -1, POLLOUT, 0},
                                   {err_.isPending() ? err_.fd : -1, POLLOUT, 0}}};
    if (::poll(watched.data(), watched.size(), -1) < 0) continue;
    std::array<char, 64> ignored;
    while (::read(wakeUp_.readEnd.get(), ignored.data(), ignored.size()) > 0) continue;
    write(out_, watched[1].revents);
    write(err_, watched[2].revents);
  }
}

/// One chunk. Some systems cannot poll a terminal (POLLNVAL): then the write may wait, and nobody
/// but this thread waits with it.
void Printer::write(Stream& stream, short events) {
  if (events == 0 || !stream.isPending()) return;
  const std::size_t count = std::min(chunk, stream.text.size() - stream.written);
  const ssize_t written = ::write(stream.fd, stream.text.data() + stream.written, count);
  if (written >= 0) {
    stream.written += static_cast<std::size_t>(written);
    if (&stream == &out_) failureTold_ = false;
  } else if (errno != EINTR && errno != EAGAIN) {
    noteFailure(stream, errno);
  }
}

/// A full disk is no reason to stop keeping the machine awake; nobody to read is.
void Printer::noteFailure(Stream& stream, int error) {
  stream.written = stream.text.size();
  if (&stream == &err_) return;
  if (error != EPIPE && error != EIO) {
    if (!std::exchange(failureTold_, true)) {
      notice("cannot print: " + std::generic_category().message(error));
    }
    return;
  }
  {
    const platform::MutexLock lock(mutex_);
    if (std::exchange(isClosed_, true)) return;
  }
  closed_();
}

}  // namespace wakelatch::host
