#include "Platform/SerialQueue.h"

#include <pthread.h>
#include <signal.h>

#include <future>
#include <memory>
#include <utility>

namespace wakelatch::platform {
namespace {

void nameThisThread(const std::string& name) {
#ifdef __APPLE__
  ::pthread_setname_np(name.c_str());
#else
  constexpr std::size_t limit = 15;  // a longer name is refused, not cut
  ::pthread_setname_np(::pthread_self(), name.substr(0, limit).c_str());
#endif
}

}  // namespace

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
    if (!thread_.joinable()) startThread();
    wasEmpty = waiting_.empty();
    waiting_.push_back(std::move(task));
  }
  if (wasEmpty) wake_.notify_one();  // else the thread is awake or has been woken
}

void SerialQueue::drain() {
  {
    const std::lock_guard lock(mutex_);
    if (!thread_.joinable()) return;  // nothing was ever submitted
  }
  const auto reached = std::make_shared<std::promise<void>>();
  async([reached] { reached->set_value(); });
  reached->get_future().wait();
}

void SerialQueue::startThread() {
  // A new thread inherits the mask. The host's handlers must not run on it, and a signal that
  // should interrupt a wait of the host must not be swallowed here.
  sigset_t all, before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    thread_ = std::thread(&SerialQueue::runTasks, this);
  } catch (...) {
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

void SerialQueue::runTasks() {
  nameThisThread(label_);
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
