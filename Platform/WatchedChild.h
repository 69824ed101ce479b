// A long-lived child that is reaped the moment it exits, whether or not anybody asks.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Platform/ChildProcess.h"

namespace wakelatch::platform {

/// Every operation may be called from any thread. Letting go of a WatchedChild does not stop it;
/// stop() does.
class WatchedChild {
 public:
  /// Starts the program as ChildProcess does, its output going where the host's goes, and a thread
  /// that waits for its exit. Throws LaunchError; then no child is left.
  static std::shared_ptr<WatchedChild> start(const std::string& executable,
                                             const std::vector<std::string>& arguments);

  std::int32_t id() const { return child_.id(); }

  /// Whether the child has not exited yet. Makes no system call.
  bool isRunning() const;

  /// Sends a signal while the child runs; never reaches a later process with the same id.
  void send(int signal) const;

  /// Waits until the child is gone, at most `seconds`. Returns whether it is.
  bool awaitExit(double seconds) const;

 private:
  WatchedChild(const std::string& executable, const std::vector<std::string>& arguments);
  void reapOnExit();

  ChildProcess child_;
  mutable std::mutex mutex_;
  mutable std::condition_variable exited_;
  bool running_ = true;  ///< guarded by mutex_, as is the reaping, so that no signal goes astray
};

}  // namespace wakelatch::platform
