// Runs months of simulated time through the real guard: detectors, decision, keep-awake child,
// statistics and log as in a watching host, on a machine that is simulated from a seed. Finds
// faults that show only after very many ticks: growth, leaks, drifting sums, states that never end.
//
//   soak [ticks] [seed]
//
// Prints a table of the process's resources at some ticks, and a line for every failed check. Exits
// with 0 only if none failed. Linux only, as it reads /proc.
#include <signal.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "Benchmarks/Soak/Checks.h"
#include "Benchmarks/Soak/Guard.h"
#include "Benchmarks/Soak/Holdings.h"
#include "Benchmarks/Soak/Ledger.h"
#include "Benchmarks/Soak/ScriptedTools.h"
#include "Benchmarks/Soak/ToolModel.h"
#include "Benchmarks/Soak/World.h"
#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/WakelatchCore.h"

namespace wakelatch::soak {
namespace {

namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool isSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool isSanitized = true;
#else
constexpr bool isSanitized = false;
#endif
#else
constexpr bool isSanitized = false;
#endif

/// A time zone whose clocks change at midnight, the hardest hour for statistics by day.
constexpr const char* timeZone = "America/Santiago";
/// How much heap and resident memory may grow after the first thousand ticks, apart from the days.
constexpr double heapBoundKiB = 64;
constexpr double residentBoundKiB = 1024;

/// Limits how long the guard may be wrong about the lid-closed setting after the tools have lied
/// about a change and given a wrong answer: ten seconds, or until the second look after a longer
/// gap between ticks.
class Grace {
 public:
  /// Whether the guard has been wrong for too long.
  bool isOver(bool isWrong, Timestamp now) {
    if (!isWrong) {
      *this = {};
      return false;
    }
    if (!since_) since_ = now;
    if (host::isOver(*since_, 10, now)) ++lateTicks_;
    return lateTicks_ >= 2;
  }
  bool isRunning() const { return since_.has_value(); }

 private:
  std::optional<Timestamp> since_;
  int lateTicks_ = 0;
};

struct Row {
  int tick = 0;
  double residentKiB = 0, neededKiB = 0;  ///< with and without freed memory that glibc keeps
  double heapKiB = 0;
  double daysKiB = 0;  ///< heap used by the days of the statistics and of the ledger
};

class Soak {
 public:
  Soak(int ticks, std::uint64_t seed, const fs::path& home) : ticks_(ticks), world_(seed, home) {
    // The tool is this program, see main(): a script could be removed before its shell has read it.
    fs::copy_file("/proc/self/exe", world_.tool());
  }

  bool run() {
    std::printf("%8s %6s %13s %8s %9s %8s %12s %8s %9s %8s\n", "ticks", "days", "resident KiB",
                "needed", "heap KiB", "of days", "descriptors", "threads", "children", "ticks/s");
    guard_ = std::make_unique<Guard>(world_, tools_);
    for (checks_.tick = 1; checks_.tick <= ticks_; ++checks_.tick) {
      const Timestamp before = world_.now();
      world_.step(checks_.tick);
      if (world_.now() < before) tools_.forgetRefusals();  // their age is unknown now
      loseTheTool();
      const auto children = childrenOfThis();
      guard_->tick();
      checks_.require(guard_->countsTime == tool_.isProven(children),
                      "time is counted while a tool runs that has shown that it works");
      ledger_.book(*guard_, world_, tool_.isProven(children));
      tool_.tick(world_.now(), children, childrenOfThis(), checks_);
      checkTool();
      checkSetting();
      checkDanger();
      checkFiles();
      if (checks_.tick % ticksBetweenRests == 0) checkRest();
      // No crash in the seconds after a wrong answer, as the new guard could not notice that.
      if (checks_.tick % 7919 == 0 && !unnoticed_.isRunning()) restart();
    }
    checks_.tick = ticks_;
    finish();
    return checks_.report();
  }

 private:
  void require(bool holds, const char* what) { checks_.require(holds, what); }

  /// Whether `time` was less than `seconds` ago; true if the clock was set back behind it.
  bool isWithin(double seconds, const std::optional<Timestamp>& time) const {
    return time && secondsBetween(*time, world_.now()) < seconds;
  }

  void checkTool() {
    const GuardDecision& decision = guard_->wish.decision;
    const bool isRunning = guard_->held.isToolRunning();
    const bool isReleaseHeld = guard_->held.releaseDueAt.has_value();
    const bool isWanted = decision.shouldPreventSleep || isReleaseHeld;
    const bool isPaused = tool_.isPaused(world_.now());
    const auto children = childrenOfThis();

    require(!decision.reason.empty(), "a decision has a reason");
    require(!guard_->hasFailedToSave, "the statistics can be saved");
    require(!tools_.isPromptAnnounced, "no prompt is shown as open between ticks");
    require(children.size() <= 1, "there is at most one keep-awake child");
    require(isRunning == !children.empty(), "a child runs exactly when the host says so");
    require(!isRunning || isWanted, "no sleep is prevented that nobody wants prevented");
    require(!isWanted || isRunning || !world_.isToolThere || isPaused,
            "sleep is prevented when wanted");
    require(!isRunning || SleepController::readCaffeinatePIDs() == children,
            "the pid file names the child");
    require(!isRunning || !world_.isToolThere || isPaused ||
                guard_->held.letDisplaySleep == world_.settings.letDisplaySleep,
            "the display posture is the one of the settings");
    require(!world_.fellAsleep || !isRunning, "nothing prevents the sleep that is asked for");
    if (isRunning) ++runningTicks_;
    if (isPaused) ++pausedTicks_;
    ++statuses_[std::string(rawValue(decision.status))];
  }

  void checkSetting() {
    const host::Held& held = guard_->held;
    const GuardDecision& decision = guard_->wish.decision;
    const bool isEngaged = held.isLidClosedEngaged;
    const bool isReleaseHeld = held.releaseDueAt.has_value();

    require(fs::exists(SleepController::engagedMarkerURL()) == isEngaged,
            "the marker stands for the lid-closed setting");
    require(!isReleaseHeld || (decision.status == GuardStatus::watching && isEngaged),
            "a release is held only while watching with the lid-closed setting engaged");
    require(!isReleaseHeld || secondsBetween(world_.now(), *held.releaseDueAt) > 0,
            "a held release comes when it is due");
    require(!isEngaged || decision.shouldPreventSleep || isReleaseHeld || held.isRestoreOpen,
            "an engaged setting is wanted, held or an open restore");
    require(!held.isRestoreOpen || isWithin(host::PromptPause::seconds, tools_.restorePromptAt),
            "an open restore is asked for again in time");

    const bool isUnnoticed = world_.isSleepDisabled && !isEngaged;
    if (isUnnoticed) ++unnoticedTicks_;
    require(!unnoticed_.isOver(isUnnoticed, world_.now()),
            "the lid-closed setting is never on unnoticed");

    const bool isWithoutEffect =
        !world_.isSleepDisabled && isEngaged && decision.shouldPreventSleep && !held.isRestoreOpen;
    if (isWithoutEffect) ++withoutEffectTicks_;
    require(!withoutEffect_.isOver(
                isWithoutEffect && !isWithin(host::PromptPause::seconds, tools_.engagePromptAt),
                world_.now()),
            "lid-closed mode without effect is tried again in time");

    if (isEngaged) ++engagedTicks_;
    if (held.isRestoreOpen) ++openRestoreTicks_;
    if (!isEngaged) tools_.forgetRefusedRestore();
    if (!world_.settings.keepAwakeWithLidClosed) tools_.forgetRefusedEngage();
  }

  void checkFiles() {
    require(guard_->wrongFiles == 0, "no session file changes without a notice");
    if (world_.isWatchQuiet) ++quietTicks_;
  }

  void checkDanger() {
    const GuardDecision& decision = guard_->wish.decision;
    const host::Held& held = guard_->held;
    const std::int64_t cutoff = world_.settings.batteryProfile.batteryCutoffPercent;
    const PowerSnapshot& power = guard_->power;
    const bool isBatteryLow =
        !power.isOnACPower && (!power.batteryPercent || *power.batteryPercent <= cutoff);
    const bool isDanger = isBatteryLow || world_.heat == ThermalState::critical;
    if (isDanger || world_.mode() == AppMode::off) {
      require(!decision.shouldPreventSleep, "off, critical heat or a low battery decide for sleep");
      require(!held.isToolRunning() && !held.releaseDueAt,
              "off, critical heat or a low battery release at once");
    }
    if (!isDanger) return;
    ++dangerTicks_;
    require(!held.isLidClosedEngaged || isWithin(60, tools_.directRestoreAt),
            "danger restores without a prompt, again every minute");
    require(!decision.shouldSleepNow || isWithin(60, tools_.sleepAt),
            "danger asks for sleep, again every minute");
  }

  /// Checks at rest, when everything is off, that the resources are those of the first rest.
  void checkRest() {
    checks_.require(!world_.isSleepDisabled && !guard_->held.isLidClosedEngaged,
                    "the lid-closed setting is off after a release");
    checks_.require(!guard_->held.isToolRunning(), "nothing is prevented at rest");
    checks_.require(guard_->save(), "the statistics are on disk at rest");
    const Holdings held = Holdings::settled(base_);
    if (!base_) base_ = held;
    checks_.require(held.descriptors == base_->descriptors, "descriptors are flat");
    checks_.require(held.threads == base_->threads, "threads are flat");
    checks_.require(held.children == base_->children, "children are flat");

    const UsageMetrics& metrics = guard_->usage.metrics();
    checks_.require(decode<UsageMetrics>(encode(metrics)) == metrics,
                    "the statistics survive their JSON form");
    drift_ = std::max(drift_, ledger_.compare(metrics, checks_));

    static constexpr int shown[] = {1000, 10'000, 50'000, 100'000, 200'000, 500'000};
    if (std::find(std::begin(shown), std::end(shown), checks_.tick) == std::end(shown) &&
        checks_.tick != ticks_) {
      return;
    }
    Row row{checks_.tick, residentKiB(), 0, heapKiB(), 0};
    giveBackFreed();
    row.neededKiB = residentKiB();
    {
      const auto copies = std::pair(metrics.days, ledger_.days());
      row.daysKiB = heapKiB() - row.heapKiB;
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start_;
    std::printf("%8d %6zu %13.0f %8.0f %9.1f %8.1f %12td %8td %9zu %8.0f\n", row.tick,
                metrics.days.size(), row.residentKiB, row.neededKiB, row.heapKiB, row.daysKiB,
                held.descriptors, held.threads, held.children, row.tick / passed.count());
    std::fflush(stdout);
    if (!first_) first_ = row;
    if (isSanitized) return;  // sanitizers keep freed memory to catch its use
    const double days = row.daysKiB - first_->daysKiB;
    checks_.require(row.heapKiB - first_->heapKiB <= heapBoundKiB + days,
                    "the heap is flat but for the days");
    checks_.require(row.neededKiB - first_->neededKiB <= residentBoundKiB + 2 * days,
                    "resident memory is flat but for the days");
  }

  /// Ends the keep-awake tool behind the guard's back; more often while it is new.
  void loseTheTool() {
    if (world_.isResting || !guard_->held.isToolRunning()) return;
    if (!world_.random.oneIn(tool_.isYoung(world_.now()) ? 80 : 1500)) return;
    for (const std::int32_t child : childrenOfThis()) ::kill(child, SIGKILL);
    while (guard_->controller.appliedLetDisplaySleep()) std::this_thread::yield();
    ++lostTools_;
  }

  /// Restarts the guard without restoring the lid-closed setting, as after a crash.
  void restart() {
    guard_->save();
    const UsageMetrics before = guard_->usage.metrics();
    guard_.reset();
    checks_.require(childrenOfThis().empty(), "no child outlives its controller");
    tool_ = ToolModel();
    tools_.forgetRefusals();
    tools_.isDanger = false;  // unknown before the first tick
    guard_ = std::make_unique<Guard>(world_, tools_);
    if (!guard_->keepAwake.held().isLidClosedEngaged) tools_.forgetRefusedRestore();
    checks_.require(guard_->usage.metrics() == before, "a restarted host goes on with what it had");
  }

  void finish() {
    world_.isResting = true;
    checks_.require(guard_->keepAwake.restore(), "normal sleep is restored in the end");
    checks_.require(!world_.isSleepDisabled, "the lid-closed setting is off in the end");
    drift_ = std::max(drift_, ledger_.compare(guard_->usage.metrics(), checks_));
    const std::int64_t sessions = guard_->usage.metrics().totalWorkSessions();
    guard_.reset();
    checks_.require(childrenOfThis().empty(), "no child is left in the end");

    const std::string log = readLog();
    const auto count = [&log](std::string_view part) {
      std::int64_t found = 0;
      for (auto at = log.find(part); at != log.npos; at = log.find(part, at + 1)) ++found;
      return found;
    };
    checks_.require(count(" process_at_close=") == sessions, "every closed session is in the log");
    const auto show = [](const char* what, std::int64_t number) {
      std::printf("%s %lld  ", what, static_cast<long long>(number));
    };
    std::printf("\nlast tick on %s\n", dayOf(world_.milliseconds).c_str());
    show("sessions", sessions);
    show("idle", count(" close=idle "));
    show("vanished", count(" close=vanished "));
    show("interrupted", count(" close=interrupted "));
    show("\nstarts of the tool", count("] Started caffeinate pid "));
    show("lost", lostTools_);
    show("\nprompts", tools_.prompts);
    show("refused", tools_.refusals);
    show("lies", tools_.lies);
    show("changes by the user", world_.changes);
    show("\nticks with the tool", runningTicks_);
    show("paused", pausedTicks_);
    show("engaged", engagedTicks_);
    show("open restore", openRestoreTicks_);
    show("quiet", quietTicks_);
    show("unnoticed", unnoticedTicks_);
    show("without effect", withoutEffectTicks_);
    show("danger", dangerTicks_);
    std::printf("\n");
    for (const auto& [status, ticks] : statuses_) show(status.c_str(), ticks);
    std::printf("\nlargest difference to the exact sums: %.3g s (bound %.3g s)\n", drift_,
                errorPerTick * static_cast<double>(ledger_.booked));
  }

  /// The whole log; waits for its last line.
  static std::string readLog() {
    FileLogger& logger = FileLogger::shared();
    logger.log("end of the soak");
    for (;;) {
      std::string log = platform::readFile(logger.logURL());
      if (log.ends_with("end of the soak\n")) return log;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }

  const int ticks_;
  Checks checks_;
  World world_;
  ScriptedTools tools_{world_, checks_};
  std::unique_ptr<Guard> guard_;
  ToolModel tool_;
  Grace unnoticed_, withoutEffect_;
  Ledger ledger_;
  std::optional<Holdings> base_;
  std::optional<Row> first_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  double drift_ = 0;
  std::int64_t runningTicks_ = 0, pausedTicks_ = 0, engagedTicks_ = 0, openRestoreTicks_ = 0,
               quietTicks_ = 0, unnoticedTicks_ = 0, withoutEffectTicks_ = 0, dangerTicks_ = 0,
               lostTools_ = 0;
  std::map<std::string, std::int64_t> statuses_;
};

}  // namespace
}  // namespace wakelatch::soak

int main(int count, char** arguments) {
  using namespace wakelatch;
  using namespace wakelatch::soak;
  if (std::filesystem::path(arguments[0]).filename() == "caffeinate")
    return ::pause();  // the keep-awake tool
  const int asked = count > 1 ? std::atoi(arguments[1]) : 200'000;
  const std::uint64_t seed = count > 2 ? std::strtoull(arguments[2], nullptr, 10) : 1;
  const int ticks = std::max(1, asked / ticksBetweenRests) * ticksBetweenRests;
  ::setenv("TZ", timeZone, 1);
  ::tzset();
  if (localTime(1735700400000).tm_gmtoff == localTime(1751338800000).tm_gmtoff) {
    std::printf("FAILED: the C library does not know %s; install tzdata\n", timeZone);
    return 1;
  }
  std::printf("%d ticks from seed %llu\n", ticks, static_cast<unsigned long long>(seed));
  const TemporaryHome home;
  const bool isGood = Soak(ticks, seed, home.path()).run();
  std::printf("%s\n", isGood ? "all checks held" : "FAILED");
  return isGood ? 0 : 1;
}
