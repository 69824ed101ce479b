// A thread that does the work which other threads give it.
#pragma once

#include <functional>
#include <thread>
#include <utility>

#include "Platform/ChildProcess.h"
#include "Platform/Mutex.h"
#include "Platform/Thread.h"

namespace wakelatch::host {

/// For work that may hang, so that no other thread is held up. Other threads add to what waits;
/// this one takes all of it at once. All but the destructor may be called from any thread, and none
/// of that blocks unless it says so.
/// @tparam Waiting what waits; empty at first, and has empty()
template <class Waiting>
class Worker {
 public:
  /// @param name  of the thread, for debuggers
  /// @param work  called on the thread with what has waited; throws nothing
  Worker(const char* name, std::function<void(Waiting)> work)
      : work_(std::move(work)), thread_(platform::startThread(name, [this] { run(); })) {}
  /// Waits until the work is done, perhaps for ever: call finish() first, and end the process if
  /// that fails.
  ~Worker() {
    {
      const platform::MutexLock lock(mutex_);
      isEnding_ = true;
      wake_.notifyAll();
    }
    thread_.join();
  }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  /// Calls `change` with what waits, before this returns.
  template <class Change>
  void give(Change&& change) {
    const platform::MutexLock lock(mutex_);
    change(waiting_);
    wake_.notifyAll();
  }

  /// Blocks until everything given so far is worked off, at most `seconds`. Returns whether it is.
  bool finish(double seconds) {
    const auto deadline = platform::deadlineIn(seconds);
    platform::MutexLock lock(mutex_);
    while (isBusy_ || !waiting_.empty()) {
      if (!done_.waitUntil(lock, deadline)) return false;
    }
    return true;
  }

 private:
  void run() {
    for (;;) {
      Waiting taken;
      {
        platform::MutexLock lock(mutex_);
        isBusy_ = false;
        done_.notifyAll();
        while (waiting_.empty() && !isEnding_) wake_.wait(lock);
        if (waiting_.empty()) return;
        taken = std::exchange(waiting_, {});
        isBusy_ = true;
      }
      work_(std::move(taken));
    }
  }

  const std::function<void(Waiting)> work_;
  platform::Mutex mutex_;
  platform::Condition wake_, done_;
  Waiting waiting_ WAKELATCH_GUARDED_BY(mutex_);
  bool isBusy_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isEnding_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace wakelatch::host
