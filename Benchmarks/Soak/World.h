// The simulated machine: clock, power, agents and a user, driven by a seed.
#pragma once

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Host/Pace.h"
#include "Tests/ScriptedAccessibility.h"
#include "Tests/TouchFile.h"
#include "WakelatchCore/WakelatchCore.h"

namespace wakelatch::soak {

inline constexpr int ticksBetweenRests = 1000;
inline constexpr int restTicks = 5;

/// Random numbers that are the same for one seed with every standard library.
class Random {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}
  /// A number from 0 to `count` - 1.
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
  const char* sessionDirectory;  ///< below home; nullptr: none
  const char* sessionFile;       ///< '?' stands for a digit
  const char* bundleID;          ///< of the application that shows `text` while it is busy
  const char* text;
  Phase phase = Phase::absent;
};

inline tm localTime(std::int64_t milliseconds) {
  const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
  tm local{};
  ::localtime_r(&seconds, &local);
  return local;
}

/// The local date by the C library, from which the code under test takes only the UTC offset.
inline std::string dayOf(std::int64_t milliseconds) {
  const tm local = localTime(milliseconds);
  char day[32];
  ::strftime(day, sizeof day, "%Y-%m-%d", &local);
  return day;
}

/// Everything outside the process. What happens depends on the seed and on what the guard does.
class World {
 public:
  World(std::uint64_t seed, std::filesystem::path home) : random(seed), home_(std::move(home)) {
    setUpAgents();
  }

  Random random;
  std::int64_t milliseconds = 1735700400000;  ///< since 1970, a whole number of them
  bool isResting = false;                     ///< whether nothing fails and the mode is off
  bool isOnACPower = true, isLevelKnown = true;
  double batteryPercent = 80;
  LidState lid = LidState::open;
  ThermalState heat = ThermalState::nominal;
  bool isSleepDisabled = false;  ///< the lid-closed setting
  /// The value that a timed-out prompt is still going to set.
  std::optional<bool> lateSetting = {};
  bool isToolThere = true;    ///< whether the keep-awake tool exists
  bool fellAsleep = false;    ///< whether the machine sleeps until the next step
  bool isWatchQuiet = false;  ///< see Pace
  ScriptedAccessibility screen;
  GuardSettings settings;
  std::int64_t changes = 0;  ///< of settings and mode

  Timestamp now() const {
    return Timestamp(std::chrono::duration<double>(static_cast<double>(milliseconds) / 1000));
  }
  AppMode mode() const { return isResting ? AppMode::off : mode_; }
  std::filesystem::path tool() const { return home_ / "caffeinate"; }

  void step(int tick) {
    const int phase = tick % ticksBetweenRests;
    isResting = phase == 0 || phase > ticksBetweenRests - restTicks;
    const std::int64_t before = milliseconds;
    if (lateSetting) isSleepDisabled = *std::exchange(lateSetting, std::nullopt);
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
      milliseconds += 3 * hour;  // long enough for refusals to expire even if the clock is set back
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
      milliseconds += (isWatchQuiet ? quietMilliseconds : interval_) +
                      random.below(random.oneIn(20) ? 1900 : 40);
    }
  }

  /// Sets the clock to 20 s before the next full hour at which `change` holds for the local times
  /// before and after it; tries `hours` hours at most.
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
      const std::filesystem::path gone = home_ / "gone";
      std::filesystem::rename(isToolThere ? tool() : gone, isToolThere ? gone : tool());
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
    if (random.oneIn(isAway_ ? 400 : 2000)) isAway_ = !isAway_;
    for (Agent& agent : agents_) {
      if (isAway_) agent.phase = Agent::Phase::absent;
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
      if (agent.sessionDirectory == nullptr) continue;
      const std::filesystem::path directory = home_ / agent.sessionDirectory;
      if (agent.phase == Phase::busy && random.oneIn(5)) {
        std::string name = agent.sessionFile;
        std::replace(name.begin(), name.end(), '?', static_cast<char>('0' + random.below(4)));
        touchFile(directory / name, after(now(), -static_cast<double>(random.below(3))));
      }
      if (random.oneIn(600)) std::filesystem::remove_all(directory);
    }
    screen = ScriptedAccessibility();
    screen.trusted = !random.oneIn(50);
    for (const Agent& agent : agents_) {
      if (agent.bundleID == nullptr || agent.phase == Phase::absent) continue;
      const std::string name = agent.arguments;
      screen.show(agent.bundleID, name, agent.phase == Phase::busy ? agent.text : "~ % ");
    }
  }

  /// Changes the settings as a user does, through their JSON form.
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

  const std::filesystem::path home_;
  std::vector<Agent> agents_;
  AppMode mode_ = AppMode::watchAgentUI;
  bool isCalm_ = false;
  bool isAway_ = false;  ///< whether nobody uses an agent
  static constexpr auto quietMilliseconds =
      static_cast<std::int64_t>(1000 * host::Pace::quietSeconds);
  std::int64_t interval_ = 2000;
};

}  // namespace wakelatch::soak
