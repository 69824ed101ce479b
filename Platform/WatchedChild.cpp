#include "Platform/WatchedChild.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <utility>

#include "Platform/Text.h"
#include "Platform/Thread.h"

namespace wakelatch::platform {

WatchedChild::WatchedChild(const std::string& executable, const std::vector<std::string>& arguments,
                           ChildOutput output)
    : child_(executable, arguments, output) {}

std::shared_ptr<WatchedChild> WatchedChild::start(const std::string& executable,
                                                  const std::vector<std::string>& arguments,
                                                  ChildOutput output) try {
  std::shared_ptr<WatchedChild> child(new WatchedChild(executable, arguments, output));
  // The thread is detached and shares ownership, so that a child is reaped even when nobody is
  // interested in it any more.
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
  while (running_ && changed_.waitUntil(lock, deadline)) continue;
  return !running_;
}

std::optional<std::string> WatchedChild::awaitWord(double seconds) const {
  const auto deadline = deadlineIn(seconds);
  MutexLock lock(mutex_);
  while (running_ && !word_ && changed_.waitUntil(lock, deadline)) continue;
  return running_ ? word_ : std::nullopt;
}

std::string WatchedChild::whyNoWord(double seconds) const {
  const MutexLock lock(mutex_);
  if (running_) return "no answer within " + std::to_string(std::lround(seconds)) + " s";
  return failure_.empty() ? "it ended without a word" : failure_;
}

void WatchedChild::onExit(std::function<void()> hook) const {
  MutexLock lock(mutex_);
  hook_ = running_ ? std::move(hook) : nullptr;
  while (isInHook_) changed_.wait(lock);
}

bool WatchedChild::awaitExitPatiently(bool untilLine) {
  for (;;) {
    try {
      return child_.awaitExit(std::numeric_limits<double>::infinity(), untilLine);
    } catch (const std::system_error&) {  // short of memory: the child goes on, so keep waiting
      std::this_thread::sleep_for(std::chrono::seconds(1));
    }
  }
}

void WatchedChild::reapOnExit() {
  bool isGone = awaitExitPatiently(/*untilLine=*/true);
  if (const std::string& said = child_.standardOutput(); said.find('\n') != said.npos) {
    const MutexLock lock(mutex_);
    word_ = said.substr(0, said.find('\n'));
    changed_.notifyAll();
  }
  while (!isGone) isGone = awaitExitPatiently(/*untilLine=*/false);
  std::function<void()> hook;
  {
    const MutexLock lock(mutex_);
    failure_ = trimmed(child_.takeStandardError());
    child_.reap();
    running_ = false;
    hook = std::exchange(hook_, nullptr);
    isInHook_ = hook != nullptr;
  }
  changed_.notifyAll();
  if (!hook) return;
  hook();
  {
    const MutexLock lock(mutex_);
    isInHook_ = false;
  }
  changed_.notifyAll();
}

}  // namespace wakelatch::platform
