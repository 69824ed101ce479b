// Runs tasks one after another on a thread of its own.
#pragma once

#include <atomic>
#include <functional>
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
  /// Waits until every task submitted so far has run. Not from a task of this queue, nor in a fork
  /// of the process, where nobody would run them.
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  /// Returns before the task has run. A task must not throw. Throws std::system_error when the
  /// thread cannot be started; the task is dropped then.
  void async(Task task);

  /// Waits until every task submitted before this call has run. Not from a task of this queue. In a
  /// fork of the process, which has no such thread, there is nothing to wait for.
  void drain();

 private:
  void runTasks();

  const std::string label_;
  Mutex mutex_;
  Condition wake_;
  std::vector<Task> waiting_ WAKELATCH_GUARDED_BY(mutex_);
  bool ending_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::thread thread_ WAKELATCH_GUARDED_BY(mutex_);
  std::atomic<int> process_{0};  ///< the one that started the thread; read without the lock
};

}  // namespace wakelatch::platform
#pragma GCC visibility pop
