#include "Host/StopSignals.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <system_error>

namespace wakelatch::host {
namespace {

std::atomic<int> stopSignal{0};  ///< the first one; 0: none yet
std::atomic<double> stoppedAt{0};
static_assert(std::atomic<int>::is_always_lock_free && std::atomic<double>::is_always_lock_free,
              "used in a signal handler");
int wakeUp[2] = {-1, -1};

double uptime() {
  timespec time{};
  ::clock_gettime(CLOCK_MONOTONIC, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

extern "C" void onStopSignal(int number) {
  constexpr double echoSeconds = 0.5;
  const double now = uptime();
  int none = 0;
  if (!stopSignal.compare_exchange_strong(none, number)) {
    if (none == number && now - stoppedAt < echoSeconds) return;
    ::_exit(128 + number);
  }
  stoppedAt = now;
  const int saved = errno;
  [[maybe_unused]] const ssize_t written = ::write(wakeUp[1], "", 1);
  errno = saved;
}

}  // namespace

StopSignals::StopSignals() {
  if (::pipe(wakeUp) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : wakeUp) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, O_NONBLOCK);
  }
  struct sigaction action {};
  action.sa_handler = onStopSignal;
  action.sa_flags = SA_RESTART;
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    if (::sigaction(number, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    ::sigaction(number, &action, nullptr);
  }
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
}

bool StopSignals::isStopRequested() const {
  return stopSignal != 0;
}

bool StopSignals::waitFor(double seconds) const {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
  while (stopSignal == 0) {
    const double left =
        std::ceil(std::chrono::duration<double, std::milli>(deadline - Clock::now()).count());
    if (left <= 0) return false;
    pollfd wake{wakeUp[0], POLLIN, 0};
    ::poll(&wake, 1, static_cast<int>(std::min(left, 60'000.0)));
  }
  return true;
}

}  // namespace wakelatch::host
