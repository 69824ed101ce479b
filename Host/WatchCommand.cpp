#include "Host/Commands.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <utility>

#include "Host/FirstRun.h"
#include "Host/Folder.h"
#include "Host/InstanceLock.h"
#include "Host/KeepAwake.h"
#include "Host/Notices.h"
#include "Host/Observer.h"
#include "Host/SettingsFile.h"
#include "Host/StatusReport.h"
#include "Host/StopSignals.h"
#include "Host/Terminal.h"
#include "Host/UsageRecorder.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
#include "Platform/Files.h"
#include "Platform/Text.h"
#include "WakelatchCore/AgentStateMachine.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {
namespace {

/// Prints ticks as the options and the terminal ask for.
class TickPrinter {
 public:
  TickPrinter(bool json, bool isTerminal) : json_(json), isTerminal_(isTerminal) {}
  ~TickPrinter() {
    if (lineIsOpen_) std::cout << std::endl;
  }
  TickPrinter(const TickPrinter&) = delete;
  TickPrinter& operator=(const TickPrinter&) = delete;

  /// False when nobody reads any more. Another failure is told once: a full disk is no reason to
  /// stop keeping the machine awake.
  bool print(const StatusReport& report) {
    errno = 0;
    write(report);
    if (std::cout) {
      failureNoticed_ = false;
      return true;
    }
    const int error = errno;
    std::cout.clear();
    if (error == EPIPE || error == EIO) return false;
    if (!std::exchange(failureNoticed_, true)) {
      printNotice("cannot print: " + std::generic_category().message(error));
    }
    return true;
  }

 private:
  void write(const StatusReport& report) {
    if (json_) {
      std::cout << encode(report, DateCoding::iso8601) << std::endl;
    } else if (isTerminal_) {
      // A line that wraps could not be taken back.
      const std::string line = *report.at + ' ' + printable(statusLine(report));
      std::cout << "\r\033[K"
                << platform::firstCharacters(line, static_cast<std::size_t>(terminalWidth() - 1))
                << std::flush;
      lineIsOpen_ = true;
    } else if (isChange(report.decision)) {
      std::cout << *report.at << ' ' << printable(statusLine(report)) << std::endl;
    }
  }

  /// Reasons that count seconds change on every tick; what they are about does not.
  bool isChange(const GuardDecision& decision) {
    GuardDecision key = decision;
    std::erase_if(key.reason, [](char c) { return c >= '0' && c <= '9'; });
    if (last_ == key) return false;
    last_ = key;
    return true;
  }

  const bool json_;
  const bool isTerminal_;
  bool lineIsOpen_ = false;
  bool failureNoticed_ = false;
  std::optional<GuardDecision> last_;
};

/// Prints a notice, if there is one.
void tell(const std::string& notice) {
  if (!notice.empty()) printNotice(notice);
}

/// What carries decisions out and counts them. A dry run has none: even its end would touch the
/// files of a watch that runs beside it.
struct Hands {
  SleepController controller;
  KeepAwake keepAwake;
  UsageStore store{usageFile()};
  UsageRecorder usage;

  Hands(const WatchOptions& options, Tools& tools, const Observer& observer)
      : controller(
            tools.runner(), tools.adminRunner(), FileLogger::shared(),
            options.caffeinatePath.empty() ? keepAwakeTool().string() : options.caffeinatePath),
        keepAwake(controller, options.releaseDelaySeconds, printNotice),
        usage(store, FileLogger::shared(), openUsage(store),
              [&observer](const std::string& agent, Timestamp at) {
                return observer.sessionFileAge(agent, at);
              }) {}

  /// Sleep prevention that is in effect, not only wanted.
  bool preventsSleep() const {
    return controller.isSleepPreventionEnabled() && controller.appliedLetDisplaySleep().has_value();
  }

 private:
  static UsageMetrics openUsage(UsageStore& store) {
    UsageStore::Opened opened = store.open(platform::now());
    tell(opened.notice);
    return std::move(opened.metrics);
  }
};

/// The running watch: what lives from its start to its end.
class Watch {
 public:
  /// @param lock  of this watch; null when it has none
  Watch(const WatchOptions& options, Tools& tools, InstanceLock* lock)
      : options_(options),
        lock_(lock),
        settings_(settingsFile()),
        observer_(tools.runner()),
        printer_(options.json, ::isatty(STDOUT_FILENO) == 1) {
    if (!options.dryRun) hands_.emplace(options, tools, observer_);
  }

  ExitStatus run(const StopSignals& signals) {
    try {
      if (hands_) hands_->keepAwake.startUp(platform::now());
      for (int tickNumber = 1; !signals.isStopRequested(); ++tickNumber) {
        const auto start = SteadyClock::now();
        if (!tick(signals) || tickNumber == options_.ticks) break;
        waitForNextTick(signals, start);
      }
    } catch (const std::exception& error) {
      printNotice(std::string("stopped by a failure: ") + error.what());
      const ExitStatus status = leave();
      return status == ExitStatus::done ? ExitStatus::failed : status;
    }
    return leave();
  }

 private:
  using SteadyClock = std::chrono::steady_clock;

  /// False when the watch is to end: a stop was requested, or nobody reads its reports.
  bool tick(const StopSignals& signals) {
    const Timestamp now = platform::now();
    if (lock_ != nullptr) tell(lock_->keep());
    tell(settings_.refresh());
    const GuardSettings& settings = settings_.current();
    const Observation seen = observer_.look(settings, now);
    if (signals.isStopRequested()) return false;  // no prompt for somebody who wants to leave
    machine_.forgetFuture(now);
    const GuardDecision decision = machine_.evaluate(
        options_.mode, settings, seen.power, seen.lidState, seen.strongest,
        hands_ && hands_->controller.isSleepPreventionEnabled(), seen.thermalState, now);
    if (hands_) {
      hands_->keepAwake.apply(decision, settings, seen.lidState, seen.thermalState, now);
      tell(hands_->usage.record({.mode = options_.mode,
                                 .settings = settings,
                                 .power = seen.power,
                                 .lidState = seen.lidState,
                                 .strongest = seen.strongest,
                                 .signals = seen.evidence.merged,
                                 .decision = decision,
                                 .preventsSleep = hands_->preventsSleep(),
                                 .now = now}));
      saveState(now);
      if (std::exchange(isFirstTick_, false)) greetOnce(seen, settings);
    }
    StatusReport report = makeStatusReport(options_.mode, seen, decision);
    report.at = platform::iso8601(now);
    report.isWatchRunning = hands_ || runningWatch();
    return printer_.print(report);
  }

  void waitForNextTick(const StopSignals& signals, SteadyClock::time_point tickStart) {
    const auto secondsLeft = [&] {
      const std::chrono::duration<double> passed = SteadyClock::now() - tickStart;
      return options_.intervalSeconds - passed.count();
    };
    if (hands_ && hands_->keepAwake.isToolNew()) {
      if (signals.waitFor(std::min(KeepAwake::earlyEndSeconds, secondsLeft()))) return;
      hands_->keepAwake.checkTool();
    }
    signals.waitFor(secondsLeft());
  }

  void saveState(Timestamp now) {
    const AgentStateMachine::Memory& memory = machine_.memory();
    const SleepController& controller = hands_->controller;
    const WatchState state{.pid = ::getpid(),
                           .at = now,
                           .intervalSeconds = options_.intervalSeconds,
                           .mode = options_.mode,
                           .held = {.isToolWanted = controller.isSleepPreventionEnabled(),
                                    .letDisplaySleep = controller.appliedLetDisplaySleep(),
                                    .isToolProven = !hands_->keepAwake.isToolNew(),
                                    .isLidClosedEngaged = controller.isLidClosedProtectionEngaged(),
                                    .isRestoreOpen = false,
                                    .since = {},
                                    .releaseDueAt = hands_->keepAwake.releaseDueAt(),
                                    .prompt = {}},
                           .lastActiveSignalAt = memory.lastActiveSignalAt,
                           .hasSeenWork = memory.hasSeenWork,
                           .completionSleepIssued = memory.completionSleepIssued};
    try {
      writeWatchState(state);
      stateFailureNoticed_ = false;
    } catch (const std::system_error& error) {
      if (!stateFailureNoticed_) printNotice(std::string("cannot tell `status`: ") + error.what());
      stateFailureNoticed_ = true;
    }
  }

  ExitStatus leave() {
    if (hands_) tell(hands_->usage.finish(platform::now()));
    if (!hands_ || !settings_.current().restoreNormalSleepOnQuit) return ExitStatus::done;
    if (hands_->keepAwake.restore()) return ExitStatus::done;
    printNotice(
        "the lid-closed setting may still be engaged: this machine may not sleep; "
        "run: wakelatch restore");
    return ExitStatus::notRestored;
  }

  const WatchOptions& options_;
  InstanceLock* const lock_;
  LiveSettings settings_;
  Observer observer_;
  AgentStateMachine machine_;
  std::optional<Hands> hands_;
  TickPrinter printer_;
  bool isFirstTick_ = true;
  bool stateFailureNoticed_ = false;
};

}  // namespace

ExitStatus runWatch(const WatchOptions& options, Tools& tools) {
  const StopSignals signals;
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
    if (lock) platform::removeUnfinished(supportFolder());
  }
  return Watch(options, tools, lock ? &*lock : nullptr).run(signals);
}

}  // namespace wakelatch::host
