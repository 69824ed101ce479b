// The files of a watch, written from a thread of its own: a disk that hangs holds up nobody else.
#pragma once

#include <optional>
#include <utility>

#include "Host/Notices.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
#include "Host/Worker.h"

namespace wakelatch::host {

/// Saves the newest state and the newest statistics; older ones that wait are dropped. May be used
/// from any thread, but for the destructor, and never blocks unless it says so.
class Saver {
 public:
  /// @param store, notifier  owned by the caller; from now on used by the thread alone
  Saver(UsageStore& store, Notifier& notifier)
      : store_(store),
        notifier_(notifier),
        worker_("saver", [this](const Newest& newest) { save(newest); }) {}

  void state(const WatchState& state) {
    worker_.give([&](Newest& newest) { newest.state = state; });
  }
  void usage(UsageMetrics metrics) {
    worker_.give([&](Newest& newest) { newest.usage = std::move(metrics); });
  }

  /// Blocks until everything given so far is saved or has failed, at most `seconds`. Returns
  /// whether it is.
  bool finish(double seconds) { return worker_.finish(seconds); }

 private:
  struct Newest {
    std::optional<WatchState> state;
    std::optional<UsageMetrics> usage;
    bool empty() const { return !state && !usage; }
  };
  void save(const Newest& newest);

  UsageStore& store_;
  Notifier& notifier_;
  Worker<Newest> worker_;
};

}  // namespace wakelatch::host
