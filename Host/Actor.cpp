#include "Host/Actor.h"

#include <cmath>
#include <utility>

#include "Host/SystemTools.h"
#include "Platform/Thread.h"
#include "WakelatchCore/FileLogger.h"

namespace wakelatch::host {
namespace {

using SteadyClock = std::chrono::steady_clock;

SteadyClock::time_point in(double seconds) {
  return SteadyClock::now() +
         std::chrono::duration_cast<SteadyClock::duration>(std::chrono::duration<double>(seconds));
}

/// A tool that the user chose is not known to say when it is ready.
double wordSeconds(const Actor::Options& options) {
  return options.caffeinatePath.empty() ? keepAwakeReadySeconds() : 0;
}

}  // namespace

Actor::Actor(const Options& options, Tools& tools, Notifier& notifier,
             std::function<void()> changed, std::function<void()> left)
    : tools_(tools),
      notifier_(notifier),
      staleSeconds_(options.staleSeconds),
      changed_(std::move(changed)),
      left_(std::move(left)),
      restoreOnLeave_(options.restoreOnLeave),
      controller_(
          tools.actingRunner(), tools.adminRunner(), FileLogger::shared(),
          options.caffeinatePath.empty() ? keepAwakeTool().string() : options.caffeinatePath,
          {.readySeconds = wordSeconds(options), .ended = [this] { toolEnded(); }}),
      keepAwake_(controller_, notifier, options.releaseDelaySeconds, wordSeconds(options) > 0,
                 {{.promptShown = [this](const std::optional<std::string>& text) { publish(text); },
                   .isCancelled = [this] { return tools_.isActingCancelled(); },
                   .asksPerson = administratorPromptTool() || tools.hasStandIns()},
                  [this] { return isNewest(); },
                  [this] { publish(std::nullopt); }}),
      thread_(platform::startThread("actor", [this] { run(); })) {}

Actor::~Actor() {
  order(Order::abandon);
  if (thread_.joinable()) thread_.join();
}

void Actor::post(Wish wish, SteadyTime observedAt, bool restoreOnLeave) {
  {
    const platform::MutexLock lock(mutex_);
    if (order_ != Order::work || observedAt < freshAfter_) return;
    if (newest_) wish.supersede(*newest_);
    newest_ = last_ = wish;
    restoreOnLeave_ = restoreOnLeave;
    postedAt_ = SteadyClock::now();
    isStale_ = false;
    if (wish.isDanger && !isInDanger_) interrupt();
  }
  wake_.notifyAll();
}

void Actor::order(Order order) {
  {
    const platform::MutexLock lock(mutex_);
    if (order <= order_ || (order_ == Order::leave && isOrderDone_)) return;
    order_ = order;
    isOrderDone_ = false;
    newest_.reset();
    interrupt();
  }
  wake_.notifyAll();
}

void Actor::interrupt() {
  if (!isBusy_) return;
  tools_.cancelActing();
  controller_.signalKeepAwake();  // the thread may also be waiting for a disk
  isToolEnded_ = true;
}

void Actor::resume() {
  const platform::MutexLock lock(mutex_);
  if (order_ != Order::pause) return;
  order_ = Order::work;
  freshAfter_ = SteadyClock::now();
}

void Actor::checkStale() {
  const platform::MutexLock lock(mutex_);
  if (isStale_ || order_ != Order::work || !isBusy_ || !postedAt_) return;
  isStale_ = SteadyClock::now() > *postedAt_ + std::chrono::duration<double>(staleSeconds_);
  if (isStale_) interrupt();
}

/// Nothing holds the machine awake until the tool is started again, so the last wish is carried out
/// anew at once, not with the next tick.
void Actor::toolEnded() {
  {
    const platform::MutexLock lock(mutex_);
    if (order_ != Order::work || newest_ || !last_) return;
    newest_ = last_;
    newest_->decision.shouldSleepNow = false;  // asked for once
  }
  wake_.notifyAll();
}

bool Actor::awaitDone(double seconds) {
  const auto deadline = in(seconds);
  platform::MutexLock lock(mutex_);
  for (;;) {
    if (order_ == Order::work ? !newest_ && !isBusy_ && !isStarting_ : isOrderDone_) return true;
    if (!done_.waitUntil(lock, deadline)) return false;
  }
}

Held Actor::held() const {
  Held held;
  {
    const platform::MutexLock lock(mutex_);
    held = held_;
  }
  // A tool may have ended, or a prompt gone on, since that was written.
  held.letDisplaySleep = controller_.appliedLetDisplaySleep();
  held.isToolProven = held.isToolProven && held.isToolRunning();
  held.isLidClosedEngaged = controller_.isLidClosedProtectionEngaged();
  return held;
}

void Actor::publish(const std::optional<std::string>& prompt) {
  Held held = keepAwake_.held();
  held.prompt = prompt;
  {
    const platform::MutexLock lock(mutex_);
    if (held.isHeld()) held.since = held_.since ? held_.since : platform::now();
    if (held == held_) return;
    held_ = held;
  }
  changed_();
}

bool Actor::isNewest() {
  const platform::MutexLock lock(mutex_);
  return order_ == Order::work && !newest_;
}

void Actor::run() {
  keepAwake_.endOrphans();  // not to be interrupted: nobody else would end them
  {
    const platform::MutexLock lock(mutex_);
    isBusy_ = true;
    isStarting_ = false;
    if (order_ != Order::work || (newest_ && newest_->isDanger)) interrupt();
  }
  keepAwake_.startUp();
  for (Job job; !finish(job);) {
    job = nextJob();
    carryOut(job);
  }
  left_();
}

/// Waits in slices: a machine that wakes up from sleep finds one of them over, not all.
Actor::Job Actor::nextJob() {
  constexpr int slices = 6;
  platform::MutexLock lock(mutex_);
  Job job;
  for (int passed = 0;;) {
    job.order = order_;
    if (order_ == Order::work ? newest_.has_value() : !isOrderDone_) break;
    if (order_ == Order::work && postedAt_ && (isStale_ || passed == slices)) {
      postedAt_.reset();  // once
      isStale_ = false;
      break;
    }
    if (!wake_.waitUntil(lock, in(staleSeconds_ / slices))) ++passed;
  }
  job.wish = std::exchange(newest_, std::nullopt);
  if (job.wish) {
    job.wish->at = platform::now();  // not before what the last job has noted
    job.wish->isToolEnded = isToolEnded_;
  }
  isToolEnded_ = false;
  job.restoreOnLeave = restoreOnLeave_;
  isBusy_ = true;
  isInDanger_ = job.wish && job.wish->isDanger;
  tools_.allowActing();
  return job;
}

void Actor::carryOut(const Job& job) {
  constexpr const char* deciding = "deciding";
  switch (job.order) {
    case Order::work:
      if (job.wish) {
        notifier_.problem(deciding, "");
        keepAwake_.apply(*job.wish);
      } else {
        notifier_.problem(deciding, "no decision for " +
                                        std::to_string(std::lround(staleSeconds_)) +
                                        " s: looking at the machine hangs; letting it sleep");
        keepAwake_.letGo();
      }
      break;
    case Order::pause:
    case Order::abandon:
      keepAwake_.letGo();
      break;
    case Order::leave:
      if (job.restoreOnLeave) {
        keepAwake_.restore();
      } else {
        keepAwake_.leaveEngaged();
      }
  }
}

/// Whether nothing more is to be done after this job.
bool Actor::finish(const Job& job) {
  publish(std::nullopt);
  bool isLast = false;
  {
    const platform::MutexLock lock(mutex_);
    isBusy_ = false;
    if (job.order != Order::work && job.order == order_) isOrderDone_ = true;
    isLast = isOrderDone_ && order_ >= Order::leave;
  }
  done_.notifyAll();
  return isLast;
}

}  // namespace wakelatch::host
