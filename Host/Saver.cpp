#include "Host/Saver.h"

#include <string>
#include <system_error>
#include <utility>

#include "Platform/ChildProcess.h"
#include "Platform/Thread.h"

namespace wakelatch::host {

Saver::Saver(UsageStore& store, Notifier& notifier)
    : store_(store),
      notifier_(notifier),
      thread_(platform::startThread("saver", [this] { run(); })) {}

Saver::~Saver() {
  {
    const platform::MutexLock lock(mutex_);
    isEnding_ = true;
  }
  wake_.notifyAll();
  thread_.join();
}

void Saver::state(const WatchState& state) {
  {
    const platform::MutexLock lock(mutex_);
    state_ = state;
  }
  wake_.notifyAll();
}

void Saver::usage(UsageMetrics metrics) {
  {
    const platform::MutexLock lock(mutex_);
    usage_ = std::move(metrics);
  }
  wake_.notifyAll();
}

bool Saver::finish(double seconds) {
  const auto deadline = platform::deadlineIn(seconds);
  platform::MutexLock lock(mutex_);
  while (isBusy_ || state_ || usage_) {
    if (!saved_.waitUntil(lock, deadline)) return false;
  }
  return true;
}

void Saver::run() {
  for (;;) {
    std::optional<WatchState> state;
    std::optional<UsageMetrics> usage;
    {
      platform::MutexLock lock(mutex_);
      isBusy_ = false;
      saved_.notifyAll();
      while (!state_ && !usage_ && !isEnding_) wake_.wait(lock);
      if (isEnding_) return;
      state = std::exchange(state_, std::nullopt);
      usage = std::exchange(usage_, std::nullopt);
      isBusy_ = true;
    }
    if (state) {
      try {
        writeWatchState(*state);
        notifier_.problem("state", "");
      } catch (const std::system_error& error) {
        notifier_.problem("state", std::string("cannot tell `status`: ") + error.what());
      }
    }
    if (usage) notifier_.problem("usage", store_.save(*usage));
  }
}

}  // namespace wakelatch::host
