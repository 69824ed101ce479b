#include "Host/Signals.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <system_error>
#include <utility>
#include <vector>

#include "Platform/Thread.h"

namespace wakelatch::host {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr unsigned char wakeUp = 0, endOfListening = 255;  // no signals' numbers
int toListener[2] = {-1, -1};
constexpr int taken[] = {SIGINT, SIGTERM, SIGHUP, SIGTSTP, SIGWINCH};

void send(unsigned char message) {
  [[maybe_unused]] const ssize_t written = ::write(toListener[1], &message, 1);
}

std::atomic<int> pendingStops{0};
static_assert(std::atomic<int>::is_always_lock_free, "used in a signal handler");

bool isStop(int number) {
  return number == SIGINT || number == SIGTERM || number == SIGHUP;
}

extern "C" void onSignal(int number) {
  const int saved = errno;
  if (isStop(number)) ++pendingStops;
  send(static_cast<unsigned char>(number));
  errno = saved;
}

/// Takes those that wait out of the queue: who goes on does not want to be stopped again.
void dropSuspensions() {
  std::vector<unsigned char> kept;
  for (unsigned char message = 0; ::read(toListener[0], &message, 1) == 1;) {
    if (message != SIGTSTP) kept.push_back(message);
  }
  for (const unsigned char message : kept) send(message);
}

}  // namespace

bool Signals::isStopPending() {
  return pendingStops > 0;
}

Signals::Signals() {
  if (::pipe(toListener) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : toListener) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, O_NONBLOCK);
  }
  struct sigaction action {};
  action.sa_handler = onSignal;
  action.sa_flags = SA_RESTART;
  for (const int number : taken) {
    struct sigaction before {};
    if (::sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    ::sigaction(number, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
  ::sigaction(SIGTTOU, &action, nullptr);
}

void Signals::endListening() {
  if (!thread_.joinable()) return;
  struct sigaction action {};
  action.sa_handler = SIG_DFL;
  for (const int number : taken) {
    struct sigaction now {};
    if (::sigaction(number, nullptr, &now) == 0 && now.sa_handler == SIG_IGN) continue;
    ::sigaction(number, &action, nullptr);
  }
  send(endOfListening);
  thread_.join();
}

void Signals::listen(Handlers handlers) {
  handlers_ = std::move(handlers);
  thread_ = platform::startThread("signals", [this] { run(); });
}

void Signals::exitIn(double seconds, int status) {
  {
    const platform::MutexLock lock(mutex_);
    exit_ = {SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                      std::chrono::duration<double>(seconds)),
             status};
  }
  send(wakeUp);
}

int Signals::untilExit() {
  constexpr int pulse = 5000;
  const platform::MutexLock lock(mutex_);
  if (!exit_) return pulse;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(exit_->at - SteadyClock::now());
  if (left.count() <= 0) ::_exit(exit_->status);
  return static_cast<int>(std::min<std::int64_t>(left.count(), pulse));
}

void Signals::run() {
  constexpr std::chrono::milliseconds echo(500);
  int stops = 0;
  SteadyClock::time_point lastAt;
  for (;;) {
    pollfd wake{toListener[0], POLLIN, 0};
    if (::poll(&wake, 1, untilExit()) == 0) handlers_.pulse();
    unsigned char message = wakeUp;
    if (::read(toListener[0], &message, 1) != 1) continue;
    const auto now = SteadyClock::now();
    switch (message) {
      case wakeUp:
        break;
      case endOfListening:
        return;
      case SIGTSTP:
        if (stops > 0) break;
        handlers_.suspend();
        // Stops every thread, this one before it goes on; kill() may leave that to another one.
        if (!isStopPending()) ::raise(SIGSTOP);
        dropSuspensions();
        handlers_.resume();
        break;
      case SIGWINCH:
        handlers_.resized();
        break;
      default:
        --pendingStops;
        if (stops > 0 && now - lastAt < echo) break;
        lastAt = now;
        handlers_.stop(message, ++stops);
    }
  }
}

}  // namespace wakelatch::host
