// The files of a watch, written from a thread of its own: a disk that hangs holds up nobody else.
#pragma once

#include <optional>
#include <thread>

#include "Host/Notices.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
#include "Platform/Clock.h"
#include "Platform/Mutex.h"

namespace wakelatch::host {

/// Saves the newest state and the newest statistics; older ones that wait are dropped. All but the
/// destructor may be called from any thread, and none of that blocks unless it says so.
class Saver {
 public:
  /// @param store, notifier  owned by the caller; from now on used by the thread alone
  Saver(UsageStore& store, Notifier& notifier);
  /// Waits for a write that is under way: call finish() before, and end the process where that
  /// fails.
  ~Saver();
  Saver(const Saver&) = delete;
  Saver& operator=(const Saver&) = delete;

  void state(const WatchState& state);
  void usage(UsageMetrics metrics);

  /// Blocks until everything given so far is saved or has failed, at most `seconds`. Returns
  /// whether it is.
  bool finish(double seconds);

 private:
  void run();

  UsageStore& store_;
  Notifier& notifier_;
  platform::Mutex mutex_;
  platform::Condition wake_, saved_;
  std::optional<WatchState> state_ WAKELATCH_GUARDED_BY(mutex_);
  std::optional<UsageMetrics> usage_ WAKELATCH_GUARDED_BY(mutex_);
  bool isBusy_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isEnding_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace wakelatch::host
