#include "Host/Commands.h"

#include <unistd.h>

#include <algorithm>
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
#include "Host/UsageRecorder.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
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

  /// False when nobody reads any more.
  bool print(const StatusReport& report) {
    if (json_) {
      std::cout << encode(report, DateCoding::iso8601) << std::endl;
    } else if (isTerminal_) {
      std::cout << "\r\033[K" << *report.at << ' ' << statusLine(report) << std::flush;
      lineIsOpen_ = true;
    } else if (isChange(report.decision)) {
      std::cout << *report.at << ' ' << statusLine(report) << std::endl;
    }
    return std::cout.good();
  }

 private:
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
  Watch(const WatchOptions& options, Tools& tools)
      : options_(options),
        settings_(settingsFile()),
        observer_(tools.runner()),
        printer_(options.json, ::isatty(STDOUT_FILENO) == 1) {
    if (!options.dryRun) hands_.emplace(options, tools, observer_);
  }

  ExitStatus run(const StopSignals& signals) {
    if (hands_) hands_->keepAwake.startUp(platform::now());
    for (int tickNumber = 1;; ++tickNumber) {
      const Timestamp start = platform::now();
      const bool isRead = tick(start);
      if (!isRead || tickNumber == options_.ticks || waitForNextTick(signals, start)) break;
    }
    return leave();
  }

 private:
  /// False when its report could not be printed.
  bool tick(Timestamp now) {
    tell(settings_.refresh());
    const GuardSettings& settings = settings_.current();
    const Observation seen = observer_.look(settings, now);
    const GuardDecision decision = machine_.evaluate(
        options_.mode, settings, seen.power, seen.lidState, seen.strongest,
        hands_ && hands_->controller.isSleepPreventionEnabled(), seen.thermalState, now);
    if (hands_) {
      hands_->keepAwake.apply(decision, settings, now);
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
    return printer_.print(report);
  }

  /// True when the watch is to end.
  bool waitForNextTick(const StopSignals& signals, Timestamp tickStart) {
    const auto waitUntil = [&](double secondsAfterStart) {
      return signals.waitFor(secondsAfterStart - secondsBetween(tickStart, platform::now()));
    };
    if (hands_ && hands_->keepAwake.isToolNew()) {
      if (waitUntil(std::min(KeepAwake::earlyEndSeconds, options_.intervalSeconds))) return true;
      hands_->keepAwake.checkTool(platform::now());
    }
    return waitUntil(options_.intervalSeconds);
  }

  void saveState(Timestamp now) {
    const AgentStateMachine::Memory& memory = machine_.memory();
    const SleepController& controller = hands_->controller;
    const WatchState state{
        .pid = ::getpid(),
        .at = now,
        .mode = options_.mode,
        .isSleepPreventionEnabled = controller.isSleepPreventionEnabled(),
        .appliedLetDisplaySleep = controller.appliedLetDisplaySleep(),
        .isLidClosedProtectionEngaged = controller.isLidClosedProtectionEngaged(),
        .releasePendingSince = hands_->keepAwake.releasePendingSince(),
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
    lock.emplace(lockFile());
    if (!lock->isHeld()) {
      printNotice("another watch runs already" +
                  (lock->holder() > 0 ? " (process " + std::to_string(lock->holder()) + ")" : "") +
                  "; stop it first");
      return ExitStatus::failed;
    }
  }
  return Watch(options, tools).run(signals);
}

}  // namespace wakelatch::host
