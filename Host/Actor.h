// Carries out what a watch decides, on a thread of its own. Only the newest decision counts; a
// command that is being waited for is ended when something more urgent is wanted.
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

/// Owns the SleepController, whose operations only the actor's thread calls; other threads read its
/// properties. The public operations may be called from any thread and do not block unless they say
/// so.
class Actor {
 public:
  using SteadyTime = std::chrono::steady_clock::time_point;

  /// What a watch may be told to do beside the wishes of its ticks; each goes further than the one
  /// before.
  enum class Order {
    work,     ///< carry out wishes
    pause,    ///< let the machine sleep without asking anybody, until resume()
    leave,    ///< restore normal sleep, asking where needed, and do nothing more
    abandon,  ///< as `leave`, without asking anybody
  };

  struct Options {
    std::string caffeinatePath;  ///< empty: the system's
    double releaseDelaySeconds = 60;
    /// After so long without a wish the thread that decides is taken to hang, and the machine is
    /// allowed to sleep.
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

  /// Replaces an older wish that is not begun yet. A wish in danger closes an open prompt and ends
  /// every command that is being waited for.
  /// @param observedAt      when the tick began to look; what was seen before resume() is dropped
  /// @param restoreOnLeave  whether Order::leave restores the lid-closed setting
  void post(Wish wish, SteadyTime observedAt, bool restoreOnLeave);

  /// Ends the command that is being waited for and carries out the order. Only `pause` can be taken
  /// back, by resume().
  void order(Order order);
  /// Ends a pause: the next wish is carried out again.
  void resume();
  /// To be called every few seconds, from any other thread: when no wish has come for
  /// `staleSeconds`, ends the command that is being waited for, since an open prompt would keep the
  /// machine from being let go.
  void checkStale();

  /// Blocks until the last order, or the last wish where there was no order, is carried out; at
  /// most `seconds`. Returns whether it is.
  bool awaitDone(double seconds);
  /// Blocks until the order to leave or to abandon is carried out. From the owner's thread.
  void join() { thread_.join(); }

  /// What holds the machine awake now.
  Held held() const;

 private:
  struct Job {
    Order order = Order::work;
    std::optional<Wish> wish;  ///< absent with Order::work: no wish came for too long
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

  // Declared before the controller, which may call toolEnded() until it is destroyed.
  mutable platform::Mutex mutex_;
  platform::Condition wake_, done_;
  Order order_ WAKELATCH_GUARDED_BY(mutex_) = Order::work;
  bool isOrderDone_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::optional<Wish> newest_ WAKELATCH_GUARDED_BY(mutex_);
  bool restoreOnLeave_ WAKELATCH_GUARDED_BY(mutex_);
  /// When the last wish was posted; absent once the machine was let go for want of wishes.
  std::optional<SteadyTime> postedAt_ WAKELATCH_GUARDED_BY(mutex_);
  bool isStale_ WAKELATCH_GUARDED_BY(mutex_) = false;  ///< nothing was posted for too long
  SteadyTime freshAfter_ WAKELATCH_GUARDED_BY(mutex_);
  bool isBusy_ WAKELATCH_GUARDED_BY(mutex_) = false;       ///< with a job that may be interrupted
  bool isToolEnded_ WAKELATCH_GUARDED_BY(mutex_) = false;  ///< by interrupt(), since the last job
  bool isStarting_ WAKELATCH_GUARDED_BY(mutex_) = true;
  bool isInDanger_ WAKELATCH_GUARDED_BY(mutex_) = false;  ///< the job under way is one of danger
  Held held_ WAKELATCH_GUARDED_BY(mutex_);
  std::optional<Wish> last_ WAKELATCH_GUARDED_BY(mutex_);  ///< the last one posted

  SleepController controller_;
  KeepAwake keepAwake_;  ///< used by the thread alone
  std::thread thread_;
};

}  // namespace wakelatch::host
