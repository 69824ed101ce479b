#include "Platform/SerialQueue.h"

#include <unistd.h>

#include <chrono>
#include <future>
#include <utility>

#include "Platform/Thread.h"

namespace wakelatch::platform {

SerialQueue::SerialQueue(std::string label) : label_(std::move(label)) {}

SerialQueue::~SerialQueue() {
  if (process_ != ::getpid()) return;
  constexpr std::chrono::seconds patience(2);
  {
    MutexLock lock(state_->mutex);
    state_->isEnding = true;
    state_->wake.notifyOne();
    while (!state_->hasEnded) {
      const std::uint64_t before = state_->tasksRun;
      const auto deadline = std::chrono::steady_clock::now() + patience;
      while (!state_->hasEnded && state_->ended.waitUntil(lock, deadline)) continue;
      if (state_->hasEnded || state_->tasksRun != before) continue;
      state_->thread.detach();  // a task hangs
      return;
    }
  }
  state_->thread.join();
}

void SerialQueue::async(Task task) {
  bool wasEmpty = false;
  {
    const MutexLock lock(state_->mutex);
    if (!state_->thread.joinable()) {
      state_->thread = startThread(label_, [state = state_] { runTasks(*state); });
      process_ = ::getpid();
    }
    wasEmpty = state_->waiting.empty();
    state_->waiting.push_back(std::move(task));
  }
  if (wasEmpty) state_->wake.notifyOne();  // else the thread is awake or has been woken
}

void SerialQueue::drain() {
  if (process_ != ::getpid()) return;
  const auto reached = std::make_shared<std::promise<void>>();
  async([reached] { reached->set_value(); });
  reached->get_future().wait();
}

void SerialQueue::runTasks(State& state) {
  std::vector<Task> batch;
  for (;;) {
    {
      MutexLock lock(state.mutex);
      while (!state.isEnding && state.waiting.empty()) state.wake.wait(lock);
      if (state.waiting.empty()) {
        state.hasEnded = true;
        return state.ended.notifyOne();
      }
      batch.swap(state.waiting);
    }
    for (const Task& task : batch) {
      task();
      ++state.tasksRun;
    }
    batch.clear();  // outside the lock: what the tasks captured ends here
  }
}

}  // namespace wakelatch::platform
