// The acting side of a watch, on a thread of its own: keeps up with what is wanted now, and drops
// what it is waiting for when that cannot wait.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "Host/KeepAwake.h"
#include "Host/Notices.h"
#include "Host/Tools.h"
#include "Host/WatchState.h"
#include "Platform/Mutex.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

/// Owns the controller; only its thread calls it, but for the properties. The public operations may
/// be called from any thread and do not block unless they say so.
class Actor {
 public:
  using SteadyTime = std::chrono::steady_clock::time_point;

  /// What everybody may ask for beside the wishes of the ticks; a later one of these goes further.
  enum class Order {
    work,     ///< carry out wishes
    pause,    ///< let the machine sleep without asking anybody, until resume()
    leave,    ///< restore normal sleep, asking where needed, and do nothing more
    abandon,  ///< the same without asking
  };

  struct Options {
    std::string caffeinatePath;  ///< empty: the system's
    double releaseDelaySeconds = 60;
    /// Without a wish for so long the deciding side hangs, and the machine is let go.
    double staleSeconds = 60;
    bool restoreOnLeave = true;  ///< until a wish says otherwise
  };

  /// Starts the thread, which first undoes what an earlier run left behind.
  /// @param tools, notifier  owned by the caller
  /// @param changed          told on the thread whenever held() has changed
  /// @param left             told on the thread when it ends, after an order to leave or to abandon
  Actor(const Options& options, Tools& tools, Notifier& notifier, std::function<void()> changed,
        std::function<void()> left);
  /// Orders to abandon, unless it has left, and waits until that is done.
  ~Actor();
  Actor(const Actor&) = delete;
  Actor& operator=(const Actor&) = delete;

  /// The newest wish replaces an older one that is not begun. Danger ends an open prompt and every
  /// tool that is waited for.
  /// @param observedAt      when the tick began to look; what was seen before resume() is dropped
  /// @param restoreOnLeave  whether Order::leave restores the lid-closed setting
  void post(Wish wish, SteadyTime observedAt, bool restoreOnLeave);

  /// Ends what is waited for and goes over to the order. Orders but `work` cannot be taken back,
  /// save `pause` by resume().
  void order(Order order);
  /// Goes on after a pause, with the next wish.
  void resume();
  /// To be called every few seconds, from any other thread: ends what is waited for when the
  /// deciding side hangs, which an open prompt would hide.
  void checkStale();

  /// Blocks until the last order is carried out or the last wish, where there was no order; at most
  /// `seconds`. Returns whether it is.
  bool awaitDone(double seconds);
  /// Blocks until the order to leave or to abandon is carried out. From the owner's thread.
  void join() { thread_.join(); }

  /// What holds the machine awake now.
  Held held() const;

 private:
  struct Job {
    Order order = Order::work;
    std::optional<Wish> wish;  ///< absent from work: the deciding side hangs
    bool restoreOnLeave = true;
  };
  void run();
  Job nextJob();
  void carryOut(const Job& job);
  bool finish(const Job& job);
  void interrupt() WAKELATCH_REQUIRES(mutex_);
  void toolEnded();
  void publish(const std::optional<std::string>& prompt);
  bool isNewest();

  Tools& tools_;
  Notifier& notifier_;
  const double staleSeconds_;
  const std::function<void()> changed_, left_;

  mutable platform::Mutex mutex_;  // before the controller, which may call toolEnded() till its end
  platform::Condition wake_, done_;
  Order order_ WAKELATCH_GUARDED_BY(mutex_) = Order::work;
  bool isOrderDone_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::optional<Wish> newest_ WAKELATCH_GUARDED_BY(mutex_);
  bool restoreOnLeave_ WAKELATCH_GUARDED_BY(mutex_);
  std::optional<SteadyTime> postedAt_ WAKELATCH_GUARDED_BY(mutex_);  ///< absent: let go since then
  bool isStale_ WAKELATCH_GUARDED_BY(mutex_) = false;  ///< nothing was posted for too long
  SteadyTime freshAfter_ WAKELATCH_GUARDED_BY(mutex_);
  bool isBusy_ WAKELATCH_GUARDED_BY(mutex_) = false;       ///< with what may be called off
  bool isToolEnded_ WAKELATCH_GUARDED_BY(mutex_) = false;  ///< by interrupt(), since the last job
  bool isStarting_ WAKELATCH_GUARDED_BY(mutex_) = true;
  bool isInDanger_ WAKELATCH_GUARDED_BY(mutex_) = false;  ///< the job under way is that already
  Held held_ WAKELATCH_GUARDED_BY(mutex_);
  std::optional<Wish> last_ WAKELATCH_GUARDED_BY(mutex_);  ///< that was posted

  SleepController controller_;
  KeepAwake keepAwake_;  ///< of the thread alone
  std::thread thread_;
};

}  // namespace wakelatch::host
