// Simulates the system's tools in the simulated world. Some answers fail, some are missing, some
// are wrong.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Benchmarks/Soak/Checks.h"
#include "Benchmarks/Soak/World.h"
#include "Host/PromptPause.h"
#include "WakelatchCore/ShellCommand.h"

namespace wakelatch::soak {

class ScriptedTools : public CommandRunning {
 public:
  ScriptedTools(World& world, Checks& checks) : world_(world), checks_(checks) {}

  bool isPromptAnnounced = false;  ///< whether the host says that a prompt is open
  bool isDanger = false;           ///< whether the guard sees danger
  /// When each was last requested, successfully or not.
  std::optional<Timestamp> directRestoreAt = {}, restorePromptAt = {}, engagePromptAt = {},
                           sleepAt = {};
  std::int64_t prompts = 0, refusals = 0, lies = 0;

  /// Forgets that prompts were refused.
  void forgetRefusedEngage() { refusedEngageAt_.reset(); }
  void forgetRefusedRestore() { refusedRestoreAt_.reset(); }
  void forgetRefusals() {
    forgetRefusedEngage();
    forgetRefusedRestore();
    insistedAt_.reset();
  }

  CommandResult run(const ShellCommand& command) override {
    std::string line = command.executable;
    for (const std::string& argument : command.arguments) line += ' ' + argument;
    note(line);
    const bool fails = !world_.isResting && world_.random.oneIn(400);
    if (fails && world_.random.oneIn(2)) throw std::runtime_error("cannot start " + line);
    if (fails && world_.random.oneIn(2)) return {0, garbage, ""};
    if (fails) refuse("timed out");
    return {0, answer(line), ""};
  }

 private:
  static constexpr const char* garbage = "\xE2\x80 nothing 7";
  static constexpr std::string_view prompting = "/usr/bin/osascript -e do shell script";
  static constexpr std::string_view restoring = "/usr/bin/pmset -a disablesleep 0";
  static constexpr std::string_view sleeping = "/usr/bin/pmset sleepnow";

  [[noreturn]] static void refuse(const char* why) {
    throw CommandRunnerError::nonZeroExit({1, "", why});
  }
  static bool isEngaging(std::string_view line) {
    return line.find("\"pmset -a disablesleep 1\"") != line.npos;
  }
  /// True with probability 1 / `count`; never while the world is at rest.
  bool happens(std::int64_t count) { return !world_.isResting && world_.random.oneIn(count); }

  void note(std::string_view line) {
    if (line == restoring) directRestoreAt = world_.now();
    if (line == sleeping) sleepAt = world_.now();
    if (!line.starts_with(prompting)) return;
    ++prompts;
    (isEngaging(line) ? engagePromptAt : restorePromptAt) = world_.now();
    checks_.require(isPromptAnnounced, "a prompt is announced");
  }

  std::string answer(const std::string& line) {
    if (line == "/bin/ps -axo pid=,ppid=,pcpu=,comm=") return world_.processes(true);
    if (line == "/bin/ps -axo pid=,args=") return world_.processes(false);
    if (line == "/usr/sbin/ioreg -r -k AppleClamshellState -d 1") {
      if (world_.lid == LidState::unknown) return "+-o IOPMrootDomain\n";
      return world_.lid == LidState::closed ? "  \"AppleClamshellState\" = Yes\n"
                                            : "  \"AppleClamshellState\" = No\n";
    }
    if (line == "/usr/bin/pmset -g batt") return battery();
    if (line == "/usr/bin/pmset -g") return setting();
    if (line == sleeping) {
      world_.fellAsleep = !world_.isSleepDisabled;
      return "Sleeping now...\n";
    }
    if (line.starts_with(prompting)) {
      const bool engages = isEngaging(line);
      checks_.require(engages || line.find("\"pmset -a disablesleep 0\"") != line.npos,
                      "a prompt is about the lid-closed setting");
      prompt(engages);
    } else if (line == restoring) {
      if (!world_.random.oneIn(3)) refuse("must be run as root");
      set(false);
    } else {
      checks_.require(false, "every command that is run is a known one");
    }
    return "";
  }

  void prompt(bool engages) {
    auto& refusedAt = engages ? refusedEngageAt_ : refusedRestoreAt_;
    const Timestamp now = world_.now();
    const auto isRecent = [now](const std::optional<Timestamp>& time) {
      return time && !host::isOver(*time, host::PromptPause::seconds, now);
    };
    const bool mayInsist = !engages && isDanger && !isRecent(insistedAt_);
    checks_.require(!isRecent(refusedAt) || mayInsist,
                    "nobody is asked again soon after a refusal, but once in danger");
    if (!engages && isDanger) insistedAt_ = now;

    if (happens(6)) {
      ++refusals;
      refusedAt = now;
      if (happens(8)) {  // the prompt timed out, but its command still takes effect
        world_.lateSetting = engages;
        refuse("timed out");
      }
      refuse("User canceled. (-128)");
    }
    set(engages);
  }

  void set(bool isSleepDisabled) {
    before_ = world_.isSleepDisabled;
    changedAt_ = world_.milliseconds;
    unreliableFor_ = happens(2) ? world_.random.between(1, 8000) : 0;
    if (happens(8)) {
      ++lies;
    } else {
      world_.isSleepDisabled = isSleepDisabled;
    }
    // Refusals do not count for a setting that is engaged later, even if it was still on.
    if (isSleepDisabled || !world_.isSleepDisabled) forgetRefusedRestore();
  }

  /// For some seconds after a change the answer may be wrong.
  std::string setting() {
    const std::int64_t age = world_.milliseconds - changedAt_;
    bool isSleepDisabled = world_.isSleepDisabled;
    if (age >= 0 && age < unreliableFor_ && !world_.isResting) {
      switch (world_.random.below(5)) {
        case 0:
          refuse("timed out");
        case 1:
          return garbage;
        case 2:
          return "";
        case 3:
          isSleepDisabled = before_;
          break;
        default:
          break;
      }
    }
    return isSleepDisabled ? " SleepDisabled\t\t1\n sleep 1\n" : " SleepDisabled\t\t0\n";
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
  std::optional<Timestamp> refusedEngageAt_, refusedRestoreAt_, insistedAt_;
  std::int64_t changedAt_ = 0, unreliableFor_ = 0;  ///< milliseconds
  bool before_ = false;                             ///< the setting before it was changed
};

}  // namespace wakelatch::soak
