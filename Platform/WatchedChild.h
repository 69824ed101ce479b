// A long-lived child that is reaped the moment it exits, whether or not anybody asks.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/ChildProcess.h"
#include "Platform/Mutex.h"

namespace wakelatch::platform {

/// Every operation may be called from any thread. Letting go of a WatchedChild does not stop it;
/// stop() does.
class WatchedChild {
 public:
  /// Starts the program as ChildProcess does, and a thread that waits for its exit. Throws
  /// LaunchError; then no child is left.
  /// @param output  captured: its first line of standard output is kept for awaitWord(), and what
  ///                it says on standard error for whyNoWord()
  static std::shared_ptr<WatchedChild> start(const std::string& executable,
                                             const std::vector<std::string>& arguments,
                                             ChildOutput output = ChildOutput::inherited);

  std::int32_t id() const { return child_.id(); }

  /// Whether the child has not exited yet. Makes no system call.
  bool isRunning() const;

  /// Sends a signal while the child runs; never reaches a later process with the same id.
  void send(int signal) const;

  /// Waits until the child is gone, at most `seconds`. Returns whether it is.
  bool awaitExit(double seconds) const;

  /// Waits for the first line of a captured standard output, at most `seconds`. Nothing when none
  /// came in time or the child is gone.
  std::optional<std::string> awaitWord(double seconds) const;

  /// Why awaitWord(seconds) has yielded nothing: what the child said on standard error, if it is
  /// gone.
  std::string whyNoWord(double seconds) const;

  /// From now on `hook` is told, once and on a thread of its own, when the child is gone; never
  /// where it is gone already.
  void onExit(std::function<void()> hook) const;
  /// The hook is not called any more once this returns. Waits for a call under way, so not from
  /// the hook.
  void forgetHook() const { onExit(nullptr); }

 private:
  WatchedChild(const std::string& executable, const std::vector<std::string>& arguments,
               ChildOutput output);
  void reapOnExit();
  bool awaitExitPatiently(bool untilLine);

  ChildProcess child_;   ///< of the waiting thread, but for its id and signals
  mutable Mutex mutex_;  ///< held while reaping too, so that no signal goes astray
  mutable Condition changed_;
  bool running_ WAKELATCH_GUARDED_BY(mutex_) = true;
  std::optional<std::string> word_ WAKELATCH_GUARDED_BY(mutex_);
  std::string failure_ WAKELATCH_GUARDED_BY(mutex_);
  mutable std::function<void()> hook_ WAKELATCH_GUARDED_BY(mutex_);
  bool isInHook_ WAKELATCH_GUARDED_BY(mutex_) = false;
};

}  // namespace wakelatch::platform
