// Lets the keep-awake tool notice that the watch that started it has ended or is stopped.
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

/// The environment variable with the watch's process id, for its tools. getppid() does not suffice:
/// if the watch has died before the tool calls it, the parent is another process.
inline constexpr const char* watchPidVariable = "WAKELATCH_PID";

/// The process of the watch. Not for use by several threads at once.
class WatchProcess {
 public:
  /// Times on the monotonic clock, which does not advance while the machine is suspended.
  struct Limits {
    std::chrono::milliseconds stopped{30'000};  ///< a watch stopped for this long counts as lost
    std::chrono::milliseconds betweenLooks{5'000};
  };

  /// The process with this id, or this process's parent if absent.
  explicit WatchProcess(std::optional<pid_t> id)
      : id_(id.value_or(parent_)),
        descriptor_(static_cast<int>(::syscall(SYS_pidfd_open, id_, 0))) {}

  /// The id in watchPidVariable; absent if the variable holds none.
  static std::optional<pid_t> namedID() {
    const char* text = std::getenv(watchPidVariable);
    const auto id = text == nullptr ? std::nullopt : numberIn<pid_t>(text);
    return id > 0 ? id : std::nullopt;
  }

  /// Blocks until the process has ended or has been stopped for the limit. Notices its end at once,
  /// or at the next look if the kernel has no process descriptors.
  void awaitLoss(const Limits& limits) const {
    for (auto lastSeenRunning = Clock::now(); !isGone();) {
      const auto now = Clock::now();
      if (!isStopped()) lastSeenRunning = now;
      if (now - lastSeenRunning >= limits.stopped) return;
      pollfd end{descriptor_.get(), POLLIN, 0};  // poll() ignores a negative descriptor
      if (::poll(&end, 1, static_cast<int>(limits.betweenLooks.count())) > 0) return;
    }
  }

 private:
  using Clock = std::chrono::steady_clock;

  /// A process whose parent ends gets another one at once: init or a subreaper. As this is called
  /// after the descriptor was opened, it also shows that the descriptor is the right process's.
  bool isGone() const {
    if (id_ == parent_) return ::getppid() != parent_;
    return ::kill(id_, 0) != 0 && errno == ESRCH;
  }

  /// Whether the process is stopped, by a signal or a debugger.
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
