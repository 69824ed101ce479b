// A long-lived child that is reaped the moment it exits, whether or not anybody asks.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Platform/ChildProcess.h"
#include "Platform/Mutex.h"

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
  mutable Mutex mutex_;  ///< held while reaping too, so that no signal goes astray
  mutable Condition exited_;
  bool running_ WAKELATCH_GUARDED_BY(mutex_) = true;
};

}  // namespace wakelatch::platform
