#include "Platform/WatchedChild.h"

#include <chrono>
#include <limits>

#include "Platform/Thread.h"

namespace wakelatch::platform {

WatchedChild::WatchedChild(const std::string& executable, const std::vector<std::string>& arguments)
    : child_(executable, arguments, ChildOutput::inherited) {}

std::shared_ptr<WatchedChild> WatchedChild::start(const std::string& executable,
                                                  const std::vector<std::string>& arguments) try {
  std::shared_ptr<WatchedChild> child(new WatchedChild(executable, arguments));
  // Detached, with a share of its own: a child that outlives all interest in it is reaped as well.
  startThread("child " + std::to_string(child->id()), [child] { child->reapOnExit(); }).detach();
  return child;
} catch (const LaunchError&) {
  throw;
} catch (const std::system_error& error) {  // no thread; the child was killed on the way here
  throw LaunchError(error.code(), executable);
}

bool WatchedChild::isRunning() const {
  const MutexLock lock(mutex_);
  return running_;
}

void WatchedChild::send(int signal) const {
  const MutexLock lock(mutex_);
  if (running_) child_.send(signal);
}

bool WatchedChild::awaitExit(double seconds) const {
  const auto deadline = deadlineIn(seconds);
  MutexLock lock(mutex_);
  while (running_ && exited_.waitUntil(lock, deadline)) continue;
  return !running_;
}

void WatchedChild::reapOnExit() {
  for (bool exited = false; !exited;) {
    try {
      exited = child_.awaitExit(std::numeric_limits<double>::infinity());
    } catch (const std::system_error&) {  // short of memory: the child goes on, so does this
      std::this_thread::sleep_for(std::chrono::seconds(1));
    }
  }
  {
    const MutexLock lock(mutex_);
    child_.reap();
    running_ = false;
  }
  exited_.notifyAll();
}

}  // namespace wakelatch::platform
