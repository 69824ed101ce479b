// `watch`: looks at the machine, decides and counts once per interval. Acting (Actor) and output
// (Teller) have threads of their own and cannot hold this up. Reads settings and catalogue again in
// each tick; writes the lock, the state file, the statistics, the log and, on request, a recording.
// Exit status: 0 after a stop, 1 after a failure or if another watch runs, 3 if the lid-closed
// setting may still be engaged, 128 + the signal's number after a second stop.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Host/Actor.h"
#include "Host/AgentsFile.h"
#include "Host/Commands.h"
#include "Host/FirstRun.h"
#include "Host/InstanceLock.h"
#include "Host/Notices.h"
#include "Host/Observer.h"
#include "Host/OneTick.h"
#include "Host/Pace.h"
#include "Host/Saver.h"
#include "Host/SettingsFile.h"
#include "Host/Signals.h"
#include "Host/StatsReport.h"
#include "Host/StatusReport.h"
#include "Host/SupportDirectory.h"
#include "Host/Teller.h"
#include "Host/UsageRecorder.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
#include "Host/trace/Recorder.h"
#include "Host/trace/TraceFile.h"
#include "Platform/Files.h"
#include "Platform/Mutex.h"
#include "WakelatchCore/AgentStateMachine.h"
#include "WakelatchCore/FileLogger.h"

namespace wakelatch::host {
namespace {

using SteadyClock = std::chrono::steady_clock;

/// The pause between ticks, which other threads may end.
class Pause {
 public:
  /// Waits until `end` at most; returns false if the watch is to end.
  bool waitUntil(SteadyClock::time_point end) {
    platform::MutexLock lock(mutex_);
    while (!isOver_ && !isShortened_ && condition_.waitUntil(lock, end)) continue;
    isShortened_ = false;
    return !isOver_;
  }
  /// Makes the next tick begin at once.
  void shorten() {
    const platform::MutexLock lock(mutex_);
    isShortened_ = true;
    condition_.notifyAll();
  }
  /// Ends the watch after the present tick.
  void endWatch() {
    const platform::MutexLock lock(mutex_);
    isOver_ = true;
    condition_.notifyAll();
  }
  bool isWatchOver() {
    const platform::MutexLock lock(mutex_);
    return isOver_;
  }

 private:
  platform::Mutex mutex_;
  platform::Condition condition_;
  bool isOver_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isShortened_ WAKELATCH_GUARDED_BY(mutex_) = false;
};

/// What a watch does besides deciding and printing. A dry run has none of it, because even its end
/// would change the files of another watch.
struct Effects {
  UsageStore store{usageFile()};
  UsageStore::Opened opened = store.open(platform::now());
  UsageRecorder usage;
  Saver saver;
  Actor actor;

  Effects(const WatchOptions& options, const GuardSettings& settings, Tools& tools,
          Notifier& notifier, Teller& teller, std::function<void()> left)
      : usage(FileLogger::shared(), std::move(opened.metrics)),
        saver(store, notifier),
        actor(
            {.caffeinatePath = options.caffeinatePath,
             .releaseDelaySeconds = options.releaseDelaySeconds,
             .staleSeconds = std::max(60.0, 5 * options.intervalSeconds),
             .restoreOnLeave = settings.restoreNormalSleepOnQuit},
            tools, notifier, [&teller] { teller.heldChanged(); }, std::move(left)) {
    if (!opened.notice.empty()) notifier.tell(opened.notice);
    teller.tellStateOf(saver, [this] { return actor.held(); });
  }
};

/// The running watch, from its start to its end.
class Watch {
 public:
  /// @param lock       the lock of this watch; null if it has none
  /// @param traceFile  the new trace file, see TraceFile; invalid if nothing is recorded
  Watch(const WatchOptions& options, Tools& tools, InstanceLock* lock,
        platform::Descriptor traceFile)
      : options_(options),
        lock_(lock),
        tools_(tools),
        agents_(agentsFiles()),
        settings_(settingsFile(), options.agent, agents_.current().profiles),
        machine_(tools.runner(), MachineSources::Files::watched),
        recorder_(makeRecorder()),
        observer_(recorder_ ? recorder_->sources() : machine_.sources(), agents_.current().profiles,
                  options.intervalSeconds / 2),
        teller_(options.output(), [this] { pause_.endWatch(); }) {
    if (!recorder_) return;
    trace_.emplace(std::move(traceFile), [this](const std::string& why) { onTraceEnd(why); });
    trace_->line(recorder_->header(settings_.current(), platform::now()));
    if (options_.isQuiet) notifier_.tell("recording to " + options_.recordFile + " until Ctrl-C");
  }

  ExitStatus run() {
    signals_.listen({.stop = [this](int number, int count) { onStop(number, count); },
                     .suspend = [this] { onSuspend(); },
                     .resume = [this] { onResume(); },
                     .resized = [this] { teller_.redraw(); },
                     .pulse =
                         [this] {
                           if (Effects* effects = acting_) effects->actor.checkStale();
                         }});
    try {
      if (!options_.dryRun) {
        effects_.emplace(options_, settings_.current(), tools_, notifier_, teller_,
                         [this] { onLeft(); });
        acting_ = &*effects_;
      }
      for (int tickNumber = 1;; ++tickNumber) {
        const auto start = SteadyClock::now();
        tick(start);
        if (tickNumber == options_.ticks) {
          isLastTold_ = true;
          while (effects_ && !pause_.isWatchOver() &&
                 !effects_->actor.awaitDone(options_.intervalSeconds))
            tick(SteadyClock::now());
          break;
        }
        verifyFiles();
        const std::chrono::duration<double> interval(intervalSeconds());
        if (!pause_.waitUntil(start + std::chrono::duration_cast<SteadyClock::duration>(interval)))
          break;
      }
    } catch (const std::exception& error) {
      notifier_.tell(std::string("stopped by a failure: ") + error.what());
      hasFailed_ = true;
    }
    const ExitStatus status = leave();
    signals_.endListening();
    return status;
  }

 private:
  std::unique_ptr<Recorder> makeRecorder() const {
    if (options_.recordFile.empty()) return nullptr;
    return std::make_unique<Recorder>(
        machine_.sources(),
        Recorder::Options{.intervalSeconds = options_.intervalSeconds,
                          .mode = options_.mode,
                          .pid = options_.dryRun ? std::nullopt : std::optional(::getpid()),
                          .profiles = agents_.current().profiles,
                          .keepsAllProcesses = options_.recordsAllProcesses});
  }

  void tick(SteadyClock::time_point start) {
    const Timestamp now =
        platform::fromMilliseconds(platform::millisecondsSince1970(platform::now()));
    if (lock_ != nullptr) notifier_.problem("lock", lock_->keep());
    followAgents();
    notifier_.problem("settings", settings_.refresh(agents_.current().profiles));
    const GuardSettings& settings = settings_.current();
    Observation seen = observer_.look(settings, now);
    tellGivenUp(seen);
    if (pause_.isWatchOver()) return;  // the last look may have been cancelled
    const Held held = effects_ ? effects_->actor.held() : Held{};
    OneTick decided =
        decide(stateMachine_, options_.mode, settings, held.isHeld(), std::move(seen));
    decided.isWatchRunning = true;  // this one
    pace_.follow(decided, held);
    observer_.setQuiet(isQuiet());
    tools_.setQuiet(isQuiet());
    if (effects_) {  // a dry run has nothing in effect
      decided.watch =
          stateAfter(decided, stateMachine_.memory(), held, ::getpid(), intervalSeconds());
      effects_->actor.post(makeWish(decided.decision, settings, decided.seen.power,
                                    decided.seen.lidState, decided.seen.thermalState, now),
                           start, settings.restoreNormalSleepOnQuit);
      count(decided, held);
      if (std::exchange(isFirstTick_, false)) {
        greetOnce(decided.seen, settings, agents_.current().profiles, notifier_);
      }
    }
    if (isLastTold_) return;
    tell(decided);
    if (trace_ && trace_->isOpen()) record(decided, held);
  }

  bool isQuiet() const {
    return !options_.isIntervalGiven && options_.recordFile.empty() && pace_.isQuiet();
  }
  double intervalSeconds() const {
    return isQuiet() ? Pace::quietSeconds : options_.intervalSeconds;
  }

  /// Called between ticks, so that no decision waits for it.
  void verifyFiles() {
    constexpr double seconds = 0.02;
    const std::size_t wrong = machine_.verifyFiles(seconds);
    if (wrong == 0 || !effects_) return;
    FileLogger::shared().log("FileProbe: " + std::to_string(wrong) +
                             " session files had changed without a notice");
  }

  void followAgents() {
    const int version = agents_.version();
    notifier_.problem("agents", agents_.refresh());
    if (agents_.version() == version) return;
    observer_.lookFor(agents_.current().profiles);
    if (trace_) trace_->end("another catalogue of agents is in force");
  }

  void tellGivenUp(const Observation& seen) {
    for (const AgentTurns& turns : seen.evidence.turns) {
      if (!turns.hasGivenUp) continue;
      const std::string text =
          turns.appName + " is in a turn that has shown no other sign of life for two hours; it " +
          "no longer keeps this machine awake";
      notifier_.tell(text);
      if (effects_) FileLogger::shared().log(text);
    }
  }

  void record(const OneTick& tick, const Held& held) {
    try {
      trace_->line(recorder_->tick(tick.seen, tick.settings, held));
    } catch (const std::exception& error) {  // such as a load that is not finite
      trace_->end(error.what());
    }
  }

  void count(const OneTick& tick, const Held& held) {
    const Observation& seen = tick.seen;
    if (effects_->usage.record({.mode = tick.mode,
                                .settings = tick.settings,
                                .power = seen.power,
                                .lidState = seen.lidState,
                                .strongest = seen.strongest,
                                .signals = seen.evidence.merged,
                                .agents = seen.agents,
                                .decision = tick.decision,
                                .preventsSleep = held.isToolRunning() && held.isToolProven,
                                .now = seen.at})) {
      effects_->saver.usage(effects_->usage.metrics());
    }
  }

  void tell(const OneTick& tick) {
    WatchTick told{.at = tick.seen.at, .report = makeStatusReport(tick)};
    const auto lastActive = stateMachine_.memory().lastActiveSignalAt;
    if (tick.decision.status == GuardStatus::idleGrace && lastActive) {
      told.graceEndsAt =
          after(*lastActive, tick.settings.profile(tick.seen.power).idleGracePeriodSeconds);
    }
    if (effects_) {
      told.keptSecondsToday =
          awakeSeconds(effects_->usage.metrics(), UsageMetrics::dayKey(told.at));
    }
    teller_.tick(std::move(told));
  }

  ExitStatus leave() {
    teller_.endScreen();
    ExitStatus status = ExitStatus::done;
    if (effects_) {
      wasHeld_ = wasHeld_ || effects_->actor.held().isHeld();
      effects_->saver.usage(effects_->usage.metrics());
      signals_.exitIn(adminTimeoutSeconds + 30, static_cast<int>(ExitStatus::notRestored));
      effects_->actor.order(Actor::Order::leave);
      effects_->actor.join();
      const bool isEngaged = effects_->actor.held().isLidClosedEngaged;
      if (isEngaged && (settings_.current().restoreNormalSleepOnQuit || stopNumber_ != 0)) {
        notifier_.tell(
            "the lid-closed setting may still be engaged: this machine may not sleep; "
            "run: wakelatch restore");
        status = ExitStatus::notRestored;
      } else if (wasHeld_ && !isEngaged) {
        notifier_.tell("normal sleep is restored");
      }
    }
    const bool isSaved = !effects_ || effects_->saver.finish(2);
    const bool isRecorded = !trace_ || trace_->finish(2);
    if (!isRecorded) {
      notifier_.tell("the end of the recording is lost: the disk does not take it");
      hasFailed_ = hasFailed_ || options_.isQuiet;
    }
    const bool isTold = teller_.finish(1);
    if (hasFailed_ && status == ExitStatus::done) status = ExitStatus::failed;
    const int exitCode = stopNumber_ != 0 ? 128 + stopNumber_ : static_cast<int>(status);
    // Destructors would wait for threads that hang on a disk or a terminal.
    if (!isSaved || !isRecorded || !isTold || stopNumber_ != 0) ::_exit(exitCode);
    return status;
  }

  // ------------------------------------------------------------- on the thread of the signals

  /// How long other threads may take, in seconds, once everything is undone, before the watch exits
  /// without them.
  static constexpr double patience = 5;

  void onStop(int number, int count) {
    if (count == 1) {
      teller_.endScreen();
      pause_.endWatch();
      tools_.cancelLooking();
      Effects* effects = acting_;
      if (effects == nullptr) {
        signals_.exitIn(patience, static_cast<int>(ExitStatus::done));
        return;
      }
      wasHeld_ = effects->actor.held().isHeld();
      if (wasHeld_) notifier_.tell("stopping, and letting this machine sleep");
      effects->actor.order(Actor::Order::leave);
      return;
    }
    stopNumber_ = number;
    if (Effects* effects = acting_) effects->actor.order(Actor::Order::abandon);
    signals_.exitIn(count == 2 ? patience : 0, 128 + number);
  }

  /// Called on the actor's thread. Limits the wait for the deciding thread, which may hang.
  void onLeft() {
    const Effects* effects = acting_;
    const bool isEngaged = effects != nullptr && effects->actor.held().isLidClosedEngaged;
    const auto status = isEngaged ? ExitStatus::notRestored : ExitStatus::done;
    signals_.exitIn(patience, stopNumber_ != 0 ? 128 + stopNumber_ : static_cast<int>(status));
  }

  void onSuspend() {
    if (Effects* effects = acting_) {
      const bool wasHeld = effects->actor.held().isHeld();
      effects->actor.order(Actor::Order::pause);
      const auto patienceEnd = SteadyClock::now() + std::chrono::seconds(6);
      while (!effects->actor.awaitDone(0.1) && SteadyClock::now() < patienceEnd) {
        if (Signals::isStopPending()) return;
      }
      if (const Held held = effects->actor.held(); held.isHeld()) {
        notifier_.tell(std::string("stopped, but ") +
                       (held.isLidClosedEngaged ? "the lid-closed setting is engaged"
                                                : "the keep-awake tool runs") +
                       ": this machine does not sleep; let the watch go on, or end it and run: "
                       "wakelatch restore");
      } else if (wasHeld) {
        notifier_.tell("stopped: this machine may sleep until the watch goes on");
      }
      teller_.stopped(true);
      effects->saver.finish(0.3);
    }
    teller_.finish(0.3);
  }

  /// Called on any thread. A watch that only records ends with its recording.
  void onTraceEnd(const std::string& why) {
    notifier_.tell("the recording has ended: " + why +
                   (options_.isQuiet ? "" : "; watching goes on"));
    if (!options_.isQuiet) return;
    hasFailed_ = true;
    pause_.endWatch();
  }

  void onResume() {
    if (Effects* effects = acting_) effects->actor.resume();
    teller_.redraw();
    pause_.shorten();
  }

  const WatchOptions& options_;
  InstanceLock* const lock_;
  Tools& tools_;
  LiveAgents agents_;
  LiveSettings settings_;
  MachineSources machine_;
  Pace pace_;
  std::unique_ptr<Recorder> recorder_;  ///< null unless a recording was requested
  Observer observer_;
  AgentStateMachine stateMachine_;
  Signals signals_;  // made before all that a stop has to undo: it keeps signals from killing
  Pause pause_;
  Teller teller_;
  Notifier notifier_{[this](const std::string& text) { teller_.notice(text); }};
  std::optional<TraceFile> trace_;
  std::optional<Effects> effects_;
  std::atomic<Effects*> acting_{nullptr};  ///< the effects, once they exist
  std::atomic<bool> wasHeld_{false};       ///< whether something held the machine awake at the stop
  bool isLastTold_ = false;                ///< whether the last of `--ticks` has been printed
  bool isFirstTick_ = true;
  std::atomic<bool> hasFailed_{false};
  std::atomic<int> stopNumber_{0};  ///< signal number of a second stop; 0: none
};

}  // namespace

ExitStatus runCommand(const WatchOptions& options, Tools& tools) {
  std::optional<InstanceLock> lock;
  if (!options.dryRun) {
    try {
      lock.emplace(lockFile());
    } catch (const NoPlaceForLock& error) {
      printNotice(std::string(error.what()) + "; watching all the same, without a lock");
    }
    if (lock && !lock->isHeld()) {
      printNotice("another watch runs already" +
                  (lock->holder() > 0 ? " (process " + std::to_string(lock->holder()) + ")" : "") +
                  "; stop it first");
      return ExitStatus::failed;
    }
    if (lock) platform::removeUnfinished(supportDirectory());
  }
  platform::Descriptor traceFile;
  if (!options.recordFile.empty()) {
    loadAgents(agentsFiles());  // throws before an empty file is left behind
    loadSettings(settingsFile());
    // Before the watch handles signals, so that Ctrl-C still ends a wait for a disk that hangs.
    traceFile = TraceFile::create(options.recordFile);
  }
  return Watch(options, tools, lock ? &*lock : nullptr, std::move(traceFile)).run();
}

}  // namespace wakelatch::host
