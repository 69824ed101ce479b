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
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
}

void SerialQueue::async(Task task) {
  bool wasEmpty = false;
  {
    const std::lock_guard lock(mutex_);
    if (!thread_.joinable()) {
      thread_ = startThread(label_, [this] { runTasks(); });
      process_ = ::getpid();
    }
    wasEmpty = waiting_.empty();
    waiting_.push_back(std::move(task));
  }
  if (wasEmpty) wake_.notify_one();  // else the thread is awake or has been woken
}

void SerialQueue::drain() {
  if (process_ != ::getpid()) return;
  const auto reached = std::make_shared<std::promise<void>>();
  async([reached] { reached->set_value(); });
  reached->get_future().wait();
}

void SerialQueue::runTasks() {
  std::vector<Task> batch;
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return ending_ || !waiting_.empty(); });
    if (waiting_.empty()) return;
    batch.swap(waiting_);
    lock.unlock();
    for (const Task& task : batch) task();
    batch.clear();  // outside the lock: what the tasks captured ends here
    lock.lock();
  }
}

}  // namespace wakelatch::platform
