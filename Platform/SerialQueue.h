// Runs tasks one after another on a thread of its own.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Mutex.h"

#pragma GCC visibility push(default)
namespace wakelatch::platform {

/// Tasks may be submitted from any thread and run in the order of submission, one at a time. The
/// thread starts with the first task.
class SerialQueue {
 public:
  /// Destroyed on the queue's thread after it has run.
  using Task = std::function<void()>;

  /// @param label  the thread's name, see startThread()
  explicit SerialQueue(std::string label);
  /// Waits until every task submitted so far has run, but gives up 2 to 4 seconds after the last
  /// one was done, when a task hangs. The thread then still runs the rest if it can, so no task may
  /// capture what ends before the process. Not from a task of this queue. In a fork of the process,
  /// which has no such thread, there is nothing to wait for.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  /// Returns before the task has run. A task must not throw. Throws std::system_error when the
  /// thread cannot be started; the task is dropped then.
  void async(Task task);

  /// Waits until every task submitted before this call has run, however long that takes. Not from a
  /// task of this queue. In a fork of the process there is nothing to wait for.
  void drain();

 private:
  /// The thread has a share of it, for it may outlive the queue.
  struct State {
    Mutex mutex;
    Condition wake, ended;
    std::vector<Task> waiting WAKELATCH_GUARDED_BY(mutex);
    bool isEnding WAKELATCH_GUARDED_BY(mutex) = false;
    bool hasEnded WAKELATCH_GUARDED_BY(mutex) = false;
    std::thread thread WAKELATCH_GUARDED_BY(mutex);
    std::atomic<std::uint64_t> tasksRun{0};
  };
  static void runTasks(State& state);

  const std::string label_;
  const std::shared_ptr<State> state_ = std::make_shared<State>();
  std::atomic<int> process_{0};  ///< the one that started the thread; read without the lock
};

}  // namespace wakelatch::platform
#pragma GCC visibility pop
