// The watching process as its keep-awake tool sees it from outside: whether it still watches.
#pragma once

#include <poll.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <string>

#include "Host/linux/KernelFiles.h"
#include "Platform/Descriptor.h"

namespace wakelatch::host {

/// The environment variable in which the host tells its tools its process id. By the time that a
/// tool looks for its parent, the watch may be dead and the parent be another.
inline constexpr const char* watchPidVariable = "WAKELATCH_PID";

/// Not for use by several threads at once.
class WatchProcess {
 public:
  /// On the monotonic clock, which stands still while the machine is suspended.
  struct Limits {
    std::chrono::milliseconds stopped{30'000};  ///< who is stopped for longer watches nothing
    std::chrono::milliseconds betweenLooks{5'000};
  };

  /// The process with this id; without one this process's parent.
  explicit WatchProcess(std::optional<pid_t> id)
      : id_(id.value_or(parent_)),
        descriptor_(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0))) {}

  /// The id that watchPidVariable holds, if it does.
  static std::optional<pid_t> namedID() {
    const char* text = std::getenv(watchPidVariable);
    const auto id = text == nullptr ? std::nullopt : numberIn<pid_t>(text);
    return id > 0 ? id : std::nullopt;
  }

  /// Blocks until the process has ended or has been stopped for longer than the limit. Its end is
  /// noticed at once; at the next look where the kernel gives no descriptor of a process.
  void awaitLoss(const Limits& limits) const {
    for (auto lastSeenRunning = Clock::now(); !isGone();) {
      const auto now = Clock::now();
      if (!isStopped()) lastSeenRunning = now;
      if (now - lastSeenRunning >= limits.stopped) return;
      pollfd end{descriptor_.get(), POLLIN, 0};  // a negative one is skipped
      if (::poll(&end, 1, static_cast<int>(limits.betweenLooks.count())) > 0) return;
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  /// Who has lost its parent gets another at once: init or a subreaper. Asked after the descriptor
  /// was opened, this also tells that it is the right process's.
  bool isGone() const {
    if (id_ == parent_) return ::getppid() != parent_;
    return ::kill(id_, 0) != 0 && errno == ESRCH;
  }

  /// By a signal or a debugger.
  bool isStopped() const {
    std::string stat;
    std::getline(std::ifstream("/proc/" + std::to_string(id_) + "/stat"), stat);
    const std::size_t nameEnd = stat.rfind(") ");  // the name itself may hold parentheses
    return nameEnd != std::string::npos && (stat[nameEnd + 2] == 'T' || stat[nameEnd + 2] == 't');
  }

  pid_t parent_ = ::getppid();
  pid_t id_;
  platform::Descriptor descriptor_;
};

}  // namespace wakelatch::host
