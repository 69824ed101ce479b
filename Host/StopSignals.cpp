#include "Host/StopSignals.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <system_error>

namespace wakelatch::host {
namespace {

std::atomic<bool> stopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free, "used in a signal handler");
int wakeUp[2] = {-1, -1};

extern "C" void onStopSignal(int number) {
  if (stopRequested.exchange(true)) ::_exit(128 + number);
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
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) ::sigaction(number, &action, nullptr);
  action.sa_handler = SIG_IGN;
  ::sigaction(SIGPIPE, &action, nullptr);
}

bool StopSignals::isStopRequested() const {
  return stopRequested;
}

bool StopSignals::waitFor(double seconds) const {
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
  while (!stopRequested) {
    const double left =
        std::ceil(std::chrono::duration<double, std::milli>(deadline - Clock::now()).count());
    if (left <= 0) return false;
    pollfd wake{wakeUp[0], POLLIN, 0};
    ::poll(&wake, 1, static_cast<int>(std::min(left, 60'000.0)));
  }
  return true;
}

}  // namespace wakelatch::host
