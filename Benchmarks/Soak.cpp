// Months of made-up time through the real guard: detectors, decision, keep-awake child, statistics
// and log run as a watching host runs them, on a machine that a seed scripts. Looks for what only
// shows after very many ticks: growth, leaks, drifting sums, states that do not come back.
//
//   soak [ticks] [seed]
//
// Prints a table of what the process holds at some ticks, and a line for every check that failed.
// Exits with 0 only when none did. On Linux only: it counts in /proc.
#include <malloc.h>
#include <signal.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Host/Folder.h"
#include "Host/KeepAwake.h"
#include "Host/UsageRecorder.h"
#include "Host/UsageStore.h"
#include "Platform/Files.h"
#include "Tests/ScriptedAccessibility.h"
#include "Tests/TemporaryFolder.h"
#include "Tests/TouchFile.h"
#include "WakelatchCore/WakelatchCore.h"

namespace {

using namespace wakelatch;
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

/// The clocks here change at midnight, the hardest hour for statistics by the day.
constexpr const char* timeZone = "America/Santiago";
constexpr int ticksBetweenRests = 1000;
constexpr int restTicks = 5;
constexpr double releaseDelaySeconds = 60;
/// Half the last bit of an instant in our days, as a double counts its seconds, for each of the two
/// that an interval lies between.
constexpr double errorPerTick = 2.4e-7;
/// What the heap and resident memory may gain after the first thousand ticks, beside the days.
constexpr double heapBoundKiB = 64;
constexpr double residentBoundKiB = 1024;

// -------------------------------------------------------------------------------------- checking

/// Counts the failures of each check.
class Checks {
 public:
  int tick = 0;

  void require(bool holds, const char* what) {
    if (holds) return;
    Failure& failure = failures_.try_emplace(what, Failure{tick, 0}).first->second;
    ++failure.count;
  }
  /// Prints what failed; whether nothing did.
  bool report() const {
    for (const auto& [what, failure] : failures_) {
      std::printf("FAILED %d times, first at tick %d: %s\n", failure.count, failure.firstTick,
                  what.c_str());
    }
    return failures_.empty();
  }

 private:
  struct Failure {
    int firstTick, count;
  };
  std::map<std::string, Failure> failures_;
};

// ----------------------------------------------------------------------------------- the machine

/// The same numbers from the same seed with every standard library.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  /// From 0 to `count` - 1.
  std::int64_t below(std::int64_t count) {
    return static_cast<std::int64_t>(engine_() % static_cast<std::uint64_t>(count));
  }
  std::int64_t between(std::int64_t first, std::int64_t last) {
    return first + below(last - first + 1);
  }
  bool oneIn(std::int64_t count) { return below(count) == 0; }
  template <class T, std::size_t size>
  const T& pick(const T (&values)[size]) {
    return values[below(size)];
  }

 private:
  std::mt19937_64 engine_;
};

struct Agent {
  enum class Phase { absent, quiet, busy };

  const char* command;
  const char* arguments;
  const char* sessionFolder;  ///< below home; nullptr: none
  const char* sessionFile;    ///< '?' stands for a digit
  const char* bundleID;       ///< of the application that shows `text` while it is busy
  const char* text;
  Phase phase = Phase::absent;
};

tm localTime(std::int64_t milliseconds) {
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  tm local{};
  ::localtime_r(&seconds, &local);
  return local;
}

/// The local date by the C library, which knows nothing of the calendar under test.
std::string dayOf(std::int64_t milliseconds) {
  const tm local = localTime(milliseconds);
  char day[32];
  ::strftime(day, sizeof day, "%Y-%m-%d", &local);
  return day;
}

/// Everything outside the process. What happens depends on the seed and on what the guard does.
class World {
 public:
  World(std::uint64_t seed, fs::path home) : random(seed), home_(std::move(home)) { setUpAgents(); }

  Random random;
  std::int64_t milliseconds = 1735700400000;  ///< since 1970, a whole number of them
  bool isResting = false;                     ///< nothing fails, the mode is off
  bool isOnACPower = true, isLevelKnown = true;
  double batteryPercent = 80;
  LidState lid = LidState::open;
  ThermalState heat = ThermalState::nominal;
  bool isSleepDisabled = false;  ///< the lid-closed setting
  bool isToolThere = true;       ///< the keep-awake tool
  bool fellAsleep = false;       ///< `pmset sleepnow` was run
  ScriptedAccessibility screen;
  GuardSettings settings;
  std::int64_t changes = 0;  ///< of settings and mode

  Timestamp now() const {
    return Timestamp(std::chrono::duration<double>(static_cast<double>(milliseconds) / 1000));
  }
  AppMode mode() const { return isResting ? AppMode::off : mode_; }
  fs::path tool() const { return home_ / "caffeinate"; }

  void step(int tick) {
    const int phase = tick % ticksBetweenRests;
    isResting = phase == 0 || phase > ticksBetweenRests - restTicks;
    const std::int64_t before = milliseconds;
    moveClock(phase == ticksBetweenRests - restTicks + 1);
    moveMachine(static_cast<double>(milliseconds - before) / 1000);
    moveAgents();
    if (random.oneIn(200)) changeSettings();
    if (random.oneIn(mode_ == AppMode::off ? 20 : 300)) {
      mode_ = random.pick(modes);
      ++changes;
    }
  }

  /// `ps -axo pid=,ppid=,pcpu=,comm=` or, without load, `ps -axo pid=,args=`.
  std::string processes(bool withLoad) {
    std::string text;
    const auto row = [&](int pid, int parent, double load, const std::string& command,
                         const std::string& arguments) {
      char line[256];
      if (withLoad) {
        std::snprintf(line, sizeof line, "%5d %5d %5.1f %s\n", pid, parent, load, command.c_str());
      } else {
        std::snprintf(line, sizeof line, "%5d %s\n", pid, arguments.c_str());
      }
      text += line;
    };
    row(1, 0, 0.1, "/sbin/launchd", "/sbin/launchd");
    for (int pid = 100; pid < 150; ++pid) {
      const std::string name = "/usr/libexec/daemon" + std::to_string(pid);
      row(pid, 1, 0.1 * (pid % 20), name, name + " --quiet");
    }
    for (std::size_t i = 0; i < agents_.size(); ++i) {
      const Agent& agent = agents_[i];
      if (agent.phase == Agent::Phase::absent) continue;
      const int pid = 1000 + 10 * static_cast<int>(i);
      const bool isBusy = agent.phase == Agent::Phase::busy;
      row(pid, 1, isBusy ? 6.5 : 0.3, agent.command, agent.arguments);
      if (isBusy) row(pid + 1, pid, 5 + static_cast<double>(i), "/usr/bin/cc", "cc -c x.c");
    }
    return text;
  }

 private:
  static constexpr AppMode modes[] = {AppMode::watchAgentUI,
                                      AppMode::watchAgentUI,
                                      AppMode::watchAgentUI,
                                      AppMode::manualKeepAwake,
                                      AppMode::sleepAfterCurrentWork,
                                      AppMode::pluggedInUnlimited,
                                      AppMode::off};

  void setUpAgents() {
    agents_ = {
        {"/usr/local/bin/claude", "claude --continue", ".claude/projects/work", "?.jsonl",
         "com.apple.Terminal", "✻ Pondering… (12s · esc to interrupt)"},
        {"/opt/homebrew/bin/codex", "codex", ".codex/sessions/2025", "rollout-?.jsonl",
         "com.googlecode.iterm2", "• Working (3s)"},
        {"/usr/local/bin/node", "node /usr/local/bin/gemini --yolo", nullptr, nullptr,
         "com.mitchellh.ghostty", "esc to cancel, 14s"},
        {"/usr/local/bin/opencode", "opencode", ".local/share/opencode", "?.db-wal", nullptr,
         nullptr},
        {"/opt/homebrew/bin/grok", "grok", ".grok/sessions/a", "updates.jsonl", nullptr, nullptr},
        {"/usr/bin/python3", "python3 /usr/local/bin/aider", nullptr, nullptr, nullptr, nullptr},
        {"/Applications/Cursor.app/Contents/MacOS/Cursor", "Cursor", nullptr, nullptr,
         "com.todesktop.230313mzl4w4u92", "Stop generating"},
        {"/Applications/MyTool.app/Contents/MacOS/MyTool", "MyTool", nullptr, nullptr,
         "com.example.mytool", "Running task 7"},
    };
  }

  void moveClock(bool isRestBeginning) {
    const auto hour = std::int64_t{3600'000};
    if (isRestBeginning) {
      milliseconds += hour / 3;  // a refused prompt is forgotten by then
    } else if (std::exchange(fellAsleep, false)) {
      milliseconds += random.between(15'000, 10 * hour);
    } else if (random.oneIn(40'000)) {
      jumpBefore(400 * 24, [](const tm& a, const tm& b) { return a.tm_gmtoff != b.tm_gmtoff; });
    } else if (random.oneIn(1200)) {
      jumpBefore(26, [](const tm& a, const tm& b) { return a.tm_mday != b.tm_mday; });
    } else if (random.oneIn(800)) {
      milliseconds += random.oneIn(2) ? random.between(10'001, hour / 4) : random.below(14 * hour);
    } else if (random.oneIn(2500)) {
      milliseconds -= random.below(2 * hour);  // set back, or not at all
    } else {
      if (random.oneIn(300)) interval_ = random.between(1000, 8000);
      milliseconds += interval_ + random.below(random.oneIn(20) ? 1900 : 40);
    }
  }

  /// Goes to 20 s before the first full hour, at most so many ahead, at which the local time
  /// changes in a way.
  template <class Change>
  void jumpBefore(int hours, Change change) {
    const std::int64_t hour = 3600'000;
    std::int64_t time = milliseconds - milliseconds % hour + hour;
    if (time - milliseconds < 40'000) time += hour;
    for (int i = 0; i < hours; ++i, time += hour) {
      if (change(localTime(time - 1000), localTime(time))) break;
    }
    milliseconds = time - 20'000 + random.below(1000);
  }

  void moveMachine(double seconds) {
    if (random.oneIn(isOnACPower ? 500 : 200)) isOnACPower = !isOnACPower;
    const double awakeSeconds = std::clamp(seconds, 0.0, 600.0);
    batteryPercent =
        std::clamp(batteryPercent + awakeSeconds / (isOnACPower ? 20 : -30), 1.0, 100.0);
    if (random.oneIn(isLevelKnown ? 3000 : 30)) isLevelKnown = !isLevelKnown;
    if (random.oneIn(150)) lid = random.pick(lids);
    if (random.oneIn(heat == ThermalState::critical ? 40 : 500)) heat = random.pick(heats);
    if (random.oneIn(isToolThere ? 3000 : 40) || (isResting && !isToolThere)) {
      const fs::path gone = home_ / "gone";
      fs::rename(isToolThere ? tool() : gone, isToolThere ? gone : tool());
      isToolThere = !isToolThere;
    }
  }
  static constexpr LidState lids[] = {LidState::open, LidState::closed, LidState::closed,
                                      LidState::unknown};
  static constexpr ThermalState heats[] = {ThermalState::nominal, ThermalState::fair,
                                           ThermalState::serious, ThermalState::critical};

  void moveAgents() {
    using Phase = Agent::Phase;
    if (random.oneIn(isCalm_ ? 40 : 80)) isCalm_ = !isCalm_;
    for (Agent& agent : agents_) {
      switch (agent.phase) {
        case Phase::absent:
          if (random.oneIn(300)) agent.phase = Phase::quiet;
          break;
        case Phase::quiet:
          if (!isCalm_ && random.oneIn(40)) agent.phase = Phase::busy;
          if (random.oneIn(400)) agent.phase = Phase::absent;
          break;
        case Phase::busy:
          if (isCalm_ || random.oneIn(20)) agent.phase = Phase::quiet;
          if (random.oneIn(400)) agent.phase = Phase::absent;
          break;
      }
      if (agent.sessionFolder == nullptr) continue;
      const fs::path folder = home_ / agent.sessionFolder;
      if (agent.phase == Phase::busy && random.oneIn(5)) {
        std::string name = agent.sessionFile;
        std::replace(name.begin(), name.end(), '?', static_cast<char>('0' + random.below(4)));
        touchFile(folder / name, after(now(), -static_cast<double>(random.below(3))));
      }
      if (random.oneIn(600)) fs::remove_all(folder);
    }
    screen = ScriptedAccessibility();
    screen.trusted = !random.oneIn(50);
    for (const Agent& agent : agents_) {
      if (agent.bundleID == nullptr || agent.phase == Phase::absent) continue;
      const std::string name = agent.arguments;
      screen.show(agent.bundleID, name, agent.phase == Phase::busy ? agent.text : "~ % ");
    }
  }

  /// The user's hand in the settings file, through its JSON form.
  void changeSettings() {
    ++changes;
    GuardSettings changed;
    for (GuardPowerProfile* profile : {&changed.batteryProfile, &changed.pluggedInProfile}) {
      profile->batteryCutoffPercent = random.between(5, 40);
      profile->warningPercent = profile->batteryCutoffPercent + random.below(20);
      profile->idleGracePeriodSeconds = static_cast<double>(random.between(0, 120));
      profile->cpuThresholdPercent = static_cast<double>(random.between(2, 30));
      profile->allowUnlimitedKeepAwake = !random.oneIn(4);
      profile->sleepAfterCompletion = random.oneIn(2);
      profile->sleepOnlyIfLidClosed = random.oneIn(2);
    }
    if (random.oneIn(2)) changed.targetApps = {"MyTool"};
    if (random.oneIn(4)) changed.disabledAgentIDs = {"claude-code", "cursor"};
    changed.accessibilityDetectionEnabled = !random.oneIn(4);
    changed.enableBrowsers = random.oneIn(4);
    changed.keepAwakeWithLidClosed = random.oneIn(2);
    changed.letDisplaySleep = random.oneIn(2);
    settings = decode<GuardSettings>(encode(changed));
    if (settings != changed) throw std::logic_error("settings changed in their JSON form");
  }

  const fs::path home_;
  std::vector<Agent> agents_;
  AppMode mode_ = AppMode::watchAgentUI;
  bool isCalm_ = false;
  std::int64_t interval_ = 2000;
};

/// The world's answers to the system's tools.
class ScriptedTools : public CommandRunning {
 public:
  ScriptedTools(World& world, Checks& checks) : world_(world), checks_(checks) {}

  CommandResult run(const ShellCommand& command) override {
    std::string line = command.executable;
    for (const std::string& argument : command.arguments) line += ' ' + argument;
    const bool fails = !world_.isResting && world_.random.oneIn(400);
    if (fails && world_.random.oneIn(2)) throw std::runtime_error("cannot start " + line);
    if (fails && world_.random.oneIn(2)) return {0, "\xE2\x80 nothing 7", ""};
    if (fails) refuse("timed out");
    return {0, answer(line), ""};
  }

 private:
  [[noreturn]] static void refuse(const char* why) {
    throw CommandRunnerError::nonZeroExit({1, "", why});
  }

  std::string answer(const std::string& line) {
    const auto is = [&line](std::string_view command) { return line == command; };
    const auto has = [&line](std::string_view part) { return line.find(part) != line.npos; };
    if (is("/bin/ps -axo pid=,ppid=,pcpu=,comm=")) return world_.processes(true);
    if (is("/bin/ps -axo pid=,args=")) return world_.processes(false);
    if (is("/usr/sbin/ioreg -r -k AppleClamshellState -d 1")) {
      if (world_.lid == LidState::unknown) return "+-o IOPMrootDomain\n";
      return world_.lid == LidState::closed ? "  \"AppleClamshellState\" = Yes\n"
                                            : "  \"AppleClamshellState\" = No\n";
    }
    if (is("/usr/bin/pmset -g batt")) return battery();
    if (is("/usr/bin/pmset -g")) {
      return world_.isSleepDisabled ? " SleepDisabled\t\t1\n sleep 1\n" : " SleepDisabled\t\t0\n";
    }
    if (is("/usr/bin/pmset sleepnow")) {
      world_.fellAsleep = true;
      return "Sleeping now...\n";
    }
    const bool isPrompt = line.starts_with("/usr/bin/osascript -e do shell script");
    if (isPrompt && !world_.isResting && world_.random.oneIn(6)) refuse("User canceled. (-128)");
    if (isPrompt && has("\"pmset -a disablesleep 1\"")) {
      world_.isSleepDisabled = true;
    } else if (isPrompt && has("\"pmset -a disablesleep 0\"")) {
      world_.isSleepDisabled = false;
    } else if (is("/usr/bin/pmset -a disablesleep 0")) {
      if (!world_.random.oneIn(3)) refuse("must be run as root");
      world_.isSleepDisabled = false;
    } else {
      checks_.require(false, "every command that is run is a known one");
    }
    return "";
  }

  std::string battery() const {
    std::string text = "Now drawing from '";
    text += world_.isOnACPower ? "AC Power" : "Battery Power";
    text += "'\n -InternalBattery-0 (id=5636195)\t";
    if (!world_.isLevelKnown) return text;
    return text + std::to_string(static_cast<int>(world_.batteryPercent)) + "%; 3:07 remaining\n";
  }

  World& world_;
  Checks& checks_;
};

// ------------------------------------------------------------------------------------- the guard

/// Everything that a watching host holds; a restarted host is a new one.
class Guard {
 public:
  Guard(World& world, CommandRunning& tools)
      : world_(world),
        power_(tools),
        lid_(tools),
        processes_(tools),
        texts_(world.screen),
        files_(platform::homeDirectory(), 12),
        sessions_(files_),
        activity_(processes_, texts_, sessions_),
        controller(tools, tools, FileLogger::shared(), world.tool().string()),
        keepAwake(controller, releaseDelaySeconds, [](const std::string&) {}),
        store_(host::usageFile()),
        usage(store_, FileLogger::shared(), store_.open(world.now()).metrics,
              [this](const std::string&, Timestamp at) { return newestSession(at); }) {
    keepAwake.startUp(world.now());
  }

  void tick() {
    const Timestamp now = world_.now();
    power = power_.snapshot();
    lid = lid_.lidState();
    const auto signals = activity_.detectPerApp(world_.settings, power, now);
    const ActivitySignal signal = strongest(signals);
    machine_.forgetFuture(now);
    decision = machine_.evaluate(world_.mode(), world_.settings, power, lid, signal,
                                 controller.isSleepPreventionEnabled(), world_.heat, now);
    keepAwake.apply(decision, world_.settings, lid, world_.heat, now);
    notice = usage.record({.mode = world_.mode(),
                           .settings = world_.settings,
                           .power = power,
                           .lidState = lid,
                           .strongest = signal,
                           .signals = signals,
                           .decision = decision,
                           .preventsSleep = preventsSleep(),
                           .now = now});
  }

  bool preventsSleep() const {
    return controller.isSleepPreventionEnabled() && controller.appliedLetDisplaySleep();
  }

  PowerSnapshot power;
  LidState lid = LidState::unknown;
  GuardDecision decision;
  std::string notice;  ///< about saving the statistics

 private:
  std::optional<std::int64_t> newestSession(Timestamp at) const {
    const auto newest = files_.newestModification({".claude/projects/**/*.jsonl"});
    if (!newest) return std::nullopt;
    return static_cast<std::int64_t>(secondsBetween(*newest, at));
  }

  World& world_;
  PowerMonitor power_;
  LidStateDetector lid_;
  ProcessDetector processes_;
  AccessibilityDetector texts_;
  FileActivityProbe files_;
  SessionActivityDetector sessions_;
  ActivityDetector activity_;
  AgentStateMachine machine_;

 public:
  SleepController controller;
  host::KeepAwake keepAwake;

 private:
  host::UsageStore store_;

 public:
  host::UsageRecorder usage;
};

// ---------------------------------------------------------------------------------- bookkeeping

/// The statistics once more, in whole milliseconds and by the C library's calendar.
class Ledger {
 public:
  void book(const Guard& guard, const World& world) {
    const UsageMetrics& metrics = guard.usage.metrics();
    const bool isOpen = metrics.sessionStartedAt.has_value();
    if (isOpen && !wasOpen_) ++opened;
    if (!isOpen && wasOpen_) ++closed;
    wasOpen_ = isOpen;

    const std::int64_t elapsed = lastTick_ ? world.milliseconds - *lastTick_ : 0;
    lastTick_ = world.milliseconds;
    if (elapsed <= 0 || elapsed > 10'000 || !guard.preventsSleep()) return;
    Day& day = days_[dayOf(world.milliseconds)];
    const GuardStatus status = guard.decision.status;
    std::int64_t* kind = nullptr;
    if (status == GuardStatus::pluggedInUnlimited) kind = &day.pluggedIn;
    if (status == GuardStatus::keepingAwake) {
      kind = world.mode() == AppMode::manualKeepAwake ? &day.manual
             : guard.lid == LidState::closed          ? &day.guarded
                                                      : &day.keptAwake;
    }
    if (kind == nullptr) return;
    *kind += elapsed;
    ++booked;
  }

  /// Compares every day; returns the largest difference in seconds.
  double compare(const UsageMetrics& metrics, Checks& checks) const {
    double largest = 0;
    const double bound = errorPerTick * static_cast<double>(booked);
    const auto close = [&](double seconds, std::int64_t milliseconds, const char* what) {
      const double difference = std::abs(seconds - static_cast<double>(milliseconds) / 1000);
      largest = std::max(largest, difference);
      checks.require(difference <= bound, what);
    };
    Day sum;
    for (const auto& [key, bucket] : metrics.days) {
      const auto found = days_.find(key);
      const Day day = found == days_.end() ? Day() : found->second;
      close(bucket.protectedSeconds, day.guarded, "a day's protected time is what was booked");
      close(bucket.keptAwakeSeconds, day.keptAwake, "a day's kept-awake time is what was booked");
      close(bucket.manualSeconds, day.manual, "a day's manual time is what was booked");
      close(bucket.pluggedInUnlimitedSeconds, day.pluggedIn,
            "a day's plugged-in time is what was booked");
    }
    for (const auto& [key, day] : days_) {
      checks.require(metrics.days.contains(key), "every booked day has its statistics");
      sum.guarded += day.guarded;
      sum.keptAwake += day.keptAwake;
      sum.manual += day.manual;
      sum.pluggedIn += day.pluggedIn;
    }
    close(metrics.totalProtectedSeconds(), sum.guarded, "the protected time is what was booked");
    close(metrics.totalKeptAwakeSeconds(), sum.keptAwake, "the kept-awake time is what was booked");
    close(metrics.totalManualSeconds(), sum.manual, "the manual time is what was booked");
    close(metrics.totalPluggedInUnlimitedSeconds(), sum.pluggedIn,
          "the plugged-in time is what was booked");

    double agents = 0;
    for (const auto& [agent, seconds] : metrics.protectedSecondsByAgent()) agents += seconds;
    close(agents, sum.guarded, "the agents' protected times are the whole");
    std::int64_t saved = 0;
    for (const auto& [agent, sessions] : metrics.sessionsByAgent()) saved += sessions;
    checks.require(saved == metrics.totalSessionsSaved(),
                   "the agents' saved sessions are the whole");
    checks.require(closed == metrics.totalWorkSessions(), "every closed session was counted");
    checks.require(opened == closed + (metrics.sessionStartedAt ? 1 : 0),
                   "every opened session is closed or open");
    return largest;
  }

  struct Day {
    std::int64_t guarded = 0, keptAwake = 0, manual = 0, pluggedIn = 0;  ///< milliseconds
  };
  const std::map<std::string, Day>& days() const { return days_; }

  std::int64_t opened = 0, closed = 0, booked = 0;

 private:
  std::map<std::string, Day> days_;
  std::optional<std::int64_t> lastTick_;
  bool wasOpen_ = false;
};

// ------------------------------------------------------------------------------------ resources

/// The ids of this process's children, ended ones that nobody has waited for among them.
std::vector<std::int32_t> childrenOfThis() {
  std::vector<std::int32_t> children;
  std::error_code threadEnded;
  for (const auto& thread : fs::directory_iterator("/proc/self/task", threadEnded)) {
    std::ifstream file(thread.path() / "children");
    std::copy(std::istream_iterator<std::int32_t>(file), {}, std::back_inserter(children));
  }
  return children;
}

std::ptrdiff_t entriesOf(const char* folder) {
  return std::distance(fs::directory_iterator(folder), {});
}

double heapKiB() {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
  const auto heap = ::mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd) / 1024;
#else
  return 0;
#endif
}

double residentKiB() {
  std::ifstream file("/proc/self/statm");
  long size = 0, resident = 0;
  file >> size >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
}

/// What the process holds while the guard rests.
struct Holdings {
  std::ptrdiff_t descriptors = 0, threads = 0;
  std::size_t children = 0;
  friend bool operator==(const Holdings&, const Holdings&) = default;

  static Holdings now() {
    return {entriesOf("/proc/self/fd"), entriesOf("/proc/self/task"), childrenOfThis().size()};
  }
  /// Waits for threads that are on their way out and for the log; then takes what it finds.
  static Holdings settled(const std::optional<Holdings>& expected) {
    for (int tries = 0; tries < 400; ++tries) {
      const Holdings held = now();
      if (expected && held == *expected) return held;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (!expected && tries > 40) break;
    }
    return now();
  }
};

struct Row {
  int tick = 0;
  double residentKiB = 0, heapKiB = 0;
  double daysKiB = 0;  ///< of the heap: the statistics' days and their like in the ledger
};

// ----------------------------------------------------------------------------------------- soak

class Soak {
 public:
  Soak(int ticks, std::uint64_t seed, const fs::path& home) : ticks_(ticks), world_(seed, home) {
    // This program, see main(): a script could be taken away while its shell is about to read it.
    fs::copy_file("/proc/self/exe", world_.tool());
  }

  bool run() {
    std::printf("%8s %6s %13s %9s %8s %12s %8s %9s %8s\n", "ticks", "days", "resident KiB",
                "heap KiB", "of days", "descriptors", "threads", "children", "ticks/s");
    guard_ = std::make_unique<Guard>(world_, tools_);
    for (checks_.tick = 1; checks_.tick <= ticks_; ++checks_.tick) {
      world_.step(checks_.tick);
      if (checks_.tick % 20'000 == 500) loseTheTool();
      guard_->tick();
      ledger_.book(*guard_, world_);
      checkTick();
      if (checks_.tick % ticksBetweenRests == 0) checkRest();
      if (checks_.tick % 7919 == 0) restart();
    }
    checks_.tick = ticks_;
    finish();
    return checks_.report();
  }

 private:
  void checkTick() {
    const GuardDecision& decision = guard_->decision;
    const bool isPreventing = guard_->preventsSleep();
    const bool isEngaged = guard_->controller.isLidClosedProtectionEngaged();
    const bool isHeld = guard_->keepAwake.releaseDueAt().has_value();
    const bool isWanted = decision.shouldPreventSleep || isHeld;
    const auto children = childrenOfThis();
    const auto require = [this](bool holds, const char* what) { checks_.require(holds, what); };

    require(!decision.reason.empty(), "a decision has a reason");
    require(guard_->notice.empty(), "the statistics can be saved");
    require(children.size() <= 1, "there is at most one keep-awake child");
    require(isPreventing == !children.empty(), "a child runs exactly when sleep is prevented");
    require(!isPreventing || isWanted, "no sleep is prevented that nobody wants prevented");
    require(!isWanted || isPreventing || !world_.isToolThere, "sleep is prevented when wanted");
    require(!isPreventing || SleepController::readCaffeinatePIDs() == children,
            "the pid file names the child");
    require(!isPreventing || !world_.isToolThere ||
                guard_->controller.appliedLetDisplaySleep() == world_.settings.letDisplaySleep,
            "the display posture is the one of the settings");
    require(!isHeld || (decision.status == GuardStatus::watching && isEngaged),
            "a release is held only while watching with the lid-closed setting engaged");

    // The delayed release of a lid-closed keep-awake, which is bounded, is no decision to go on.
    const std::int64_t cutoff = world_.settings.batteryProfile.batteryCutoffPercent;
    const PowerSnapshot& power = guard_->power;
    const bool isBatteryLow =
        !power.isOnACPower && (!power.batteryPercent || *power.batteryPercent <= cutoff);
    if (world_.mode() == AppMode::off || world_.heat == ThermalState::critical || isBatteryLow) {
      require(!decision.shouldPreventSleep, "off, critical heat or a low battery decide for sleep");
      require(!isPreventing || isHeld, "off, critical heat or a low battery release");
    }
    require(!isHeld || world_.heat != ThermalState::critical, "critical heat holds nothing");
    require(!isHeld || secondsBetween(world_.now(), *guard_->keepAwake.releaseDueAt()) > 0,
            "a held release comes when it is due");

    require(!world_.fellAsleep || !isPreventing, "nothing prevents the sleep that is asked for");

    require(!world_.isSleepDisabled || isEngaged, "the lid-closed setting is never on unnoticed");
    require(fs::exists(SleepController::engagedMarkerURL()) == isEngaged,
            "the marker stands for the lid-closed setting");
    if (decision.shouldPreventSleep) ++preventingTicks_;
    if (isEngaged) ++engagedTicks_;
    ++statuses_[std::string(rawValue(decision.status))];
  }

  /// Everything is off: what is held now is what is always held.
  void checkRest() {
    checks_.require(!world_.isSleepDisabled, "the lid-closed setting is off after a release");
    checks_.require(!guard_->preventsSleep(), "nothing is prevented at rest");
    const Holdings held = Holdings::settled(base_);
    if (!base_) base_ = held;
    checks_.require(held.descriptors == base_->descriptors, "descriptors are flat");
    checks_.require(held.threads == base_->threads, "threads are flat");
    checks_.require(held.children == base_->children, "children are flat");

    const UsageMetrics& metrics = guard_->usage.metrics();
    checks_.require(decode<UsageMetrics>(encode(metrics)) == metrics,
                    "the statistics survive their JSON form");
    drift_ = std::max(drift_, ledger_.compare(metrics, checks_));

    static constexpr int shown[] = {1000, 10'000, 50'000, 100'000, 200'000};
    if (std::find(std::begin(shown), std::end(shown), checks_.tick) == std::end(shown) &&
        checks_.tick != ticks_) {
      return;
    }
    Row row{checks_.tick, residentKiB(), heapKiB(), 0};
    {
      const auto copies = std::pair(metrics.days, ledger_.days());
      row.daysKiB = heapKiB() - row.heapKiB;
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start_;
    std::printf("%8d %6zu %13.0f %9.1f %8.1f %12td %8td %9zu %8.0f\n", row.tick,
                metrics.days.size(), row.residentKiB, row.heapKiB, row.daysKiB, held.descriptors,
                held.threads, held.children, row.tick / passed.count());
    std::fflush(stdout);
    if (!first_) first_ = row;
    if (isSanitized) return;  // freed memory is kept there, to catch its use
    const double days = row.daysKiB - first_->daysKiB;
    checks_.require(row.heapKiB - first_->heapKiB <= heapBoundKiB + days,
                    "the heap is flat but for the days");
    checks_.require(row.residentKiB - first_->residentKiB <= residentBoundKiB + 3 * days,
                    "resident memory is flat but for the days and their text");
  }

  /// Ends the keep-awake tool behind the guard's back, when it runs and is not new any more.
  void loseTheTool() {
    if (!guard_->preventsSleep()) return;
    std::this_thread::sleep_for(
        std::chrono::duration<double>(host::KeepAwake::earlyEndSeconds + 0.1));
    guard_->keepAwake.checkTool();
    for (const std::int32_t child : childrenOfThis()) ::kill(child, SIGKILL);
    while (guard_->controller.appliedLetDisplaySleep()) std::this_thread::yield();
    ++lostTools_;
  }

  /// Leaves without restoring the lid-closed setting, as a crash does, and comes back.
  void restart() {
    guard_->usage.finish(world_.now());
    const UsageMetrics before = guard_->usage.metrics();
    guard_.reset();
    checks_.require(childrenOfThis().empty(), "no child outlives its controller");
    guard_ = std::make_unique<Guard>(world_, tools_);
    checks_.require(guard_->usage.metrics() == before, "a restarted host goes on with what it had");
    const bool isEngaged = guard_->controller.isLidClosedProtectionEngaged();
    checks_.require(world_.isSleepDisabled <= isEngaged,
                    "a setting left by an earlier run is restored or known");
  }

  void finish() {
    world_.isResting = true;
    checks_.require(guard_->keepAwake.restore(), "normal sleep is restored in the end");
    checks_.require(!world_.isSleepDisabled, "the lid-closed setting is off in the end");
    drift_ = std::max(drift_, ledger_.compare(guard_->usage.metrics(), checks_));
    const std::int64_t sessions = guard_->usage.metrics().totalWorkSessions();
    guard_->usage.finish(world_.now());
    guard_.reset();
    checks_.require(childrenOfThis().empty(), "no child is left in the end");

    const std::string log = readLog();
    const auto count = [&log](std::string_view part) {
      std::int64_t found = 0;
      for (auto at = log.find(part); at != log.npos; at = log.find(part, at + 1)) ++found;
      return found;
    };
    checks_.require(count(" process_at_close=") == sessions, "every closed session is in the log");
    std::printf(
        "\nlast tick on %s; %lld sessions: %lld idle, %lld vanished, %lld interrupted\n"
        "%lld starts of the tool, %d lost, %lld of %d ticks preventing, %lld lid-closed; "
        "%lld prompts refused; %lld changes of settings and mode\n",
        dayOf(world_.milliseconds).c_str(), static_cast<long long>(sessions),
        static_cast<long long>(count(" close=idle ")),
        static_cast<long long>(count(" close=vanished ")),
        static_cast<long long>(count(" close=interrupted ")),
        static_cast<long long>(count("] Started caffeinate pid ")), lostTools_,
        static_cast<long long>(preventingTicks_), ticks_, static_cast<long long>(engagedTicks_),
        static_cast<long long>(count("User canceled")), static_cast<long long>(world_.changes));
    for (const auto& [status, ticks] : statuses_) {
      std::printf("%s %lld  ", status.c_str(), static_cast<long long>(ticks));
    }
    std::printf("\nlargest difference to the exact sums: %.3g s (bound %.3g s)\n", drift_,
                errorPerTick * static_cast<double>(ledger_.booked));
  }

  /// The whole log, once its last line is there.
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
  Ledger ledger_;
  std::optional<Holdings> base_;
  std::optional<Row> first_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  double drift_ = 0;
  std::int64_t preventingTicks_ = 0, engagedTicks_ = 0;
  int lostTools_ = 0;
  std::map<std::string, std::int64_t> statuses_;
};

}  // namespace

int main(int count, char** arguments) {
  if (fs::path(arguments[0]).filename() == "caffeinate") return ::pause();  // the keep-awake tool
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
