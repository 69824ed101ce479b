#include "Platform/SerialQueue.h"

#include <unistd.h>

#include <future>
#include <memory>
#include <utility>

#include "Platform/Thread.h"

namespace wakelatch::platform {

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {}

SerialQueue::~SerialQueue() {
  {
    const MutexLock lock(mutex_);
    ending_ = true;
  }
  wake_.notifyOne();
  if (thread_.joinable()) thread_.join();
}

void SerialQueue::async(Task task) {
  bool wasEmpty = false;
  {
    const MutexLock lock(mutex_);
    if (!thread_.joinable()) {
      thread_ = startThread(label_, [this] { runTasks(); });
      process_ = ::getpid();
    }
    wasEmpty = waiting_.empty();
    waiting_.push_back(std::move(task));
  }
  if (wasEmpty) wake_.notifyOne();  // else the thread is awake or has been woken
}

void SerialQueue::drain() {
  if (process_ != ::getpid()) return;
  const auto reached = std::make_shared<std::promise<void>>();
  async([reached] { reached->set_value(); });
  reached->get_future().wait();
}

void SerialQueue::runTasks() {
  std::vector<Task> batch;
  for (;;) {
    {
      MutexLock lock(mutex_);
      while (!ending_ && waiting_.empty()) wake_.wait(lock);
      if (waiting_.empty()) return;
      batch.swap(waiting_);
    }
    for (const Task& task : batch) task();
    batch.clear();  // outside the lock: what the tasks captured ends here
  }
}

}  // namespace wakelatch::platform
