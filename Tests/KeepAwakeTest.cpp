#include "Host/KeepAwake.h"
#include "Host/WatchText.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <atomic>
#include <filesystem>
#include <optional>

#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {
namespace {

/// The acting side over tools that only remember what they were asked for.
struct Fixture : CommandRunning {
  TemporaryHome home;
  std::string commands;  ///< but for reading the setting
  int notices = 0;
  bool refuses = false;  ///< the user refuses every prompt
  bool lies = false;     ///< a prompt ends well and does nothing
  bool isNewest = true;
  std::atomic<int> ends = 0;  ///< of the tool, by itself
  std::string sleepRefusal;
  Timestamp now;
  bool sleepDisabled = false;
  FileLogger logger;
  Notifier notifier{[this](const std::string&) { ++notices; }};
  std::optional<SleepController> controller;
  std::optional<KeepAwake> keepAwake;
  GuardSettings settings;
  PowerSnapshot power{true, {}, ""};
  LidState lid = LidState::closed;
  ThermalState heat = ThermalState::nominal;

  explicit Fixture(const std::string& toolScript = "exec sleep 60", double readySeconds = 0) {
    const auto tool = home.path() / "caffeinate";
    writeScript(tool, toolScript);
    controller.emplace(*this, *this, logger, tool.string(),
                       SleepController::ToolOptions{readySeconds, [this] { ++ends; }});
    const KeepAwake::Hooks hooks{{.promptShown = [](const auto&) {},
                                  .isCancelled = [] { return false; },
                                  .now = [this] { return now; }},
                                 [this] { return isNewest; }};
    keepAwake.emplace(*controller, notifier, 60, readySeconds > 0, hooks);
    settings.keepAwakeWithLidClosed = true;
  }

  CommandResult run(const ShellCommand& command) override {
    const std::string last = command.arguments.back();
    if (last == "-g") return {0, sleepDisabled ? "SleepDisabled 1" : "SleepDisabled 0", ""};
    const bool prompts = last.find("prompt") != std::string::npos;
    const bool engages = last.find("disablesleep 1") != std::string::npos;
    if (!commands.empty()) commands += ", ";
    commands += last == "sleepnow" ? "sleep" : engages ? "engage" : "restore";
    if (!prompts && last == "0") commands += " directly";
    if (last == "sleepnow" && !sleepRefusal.empty()) {
      throw CommandRunnerError::nonZeroExit({1, "", sleepRefusal});
    }
    if (prompts ? refuses : last == "0") throw CommandRunnerError::nonZeroExit({1, "", "refused"});
    if (prompts && !lies) sleepDisabled = engages;
    return {0, "", ""};
  }

  /// One tick; returns what was asked of the tools.
  std::string tick(double at, GuardStatus status, bool sleepNow = false) {
    const GuardDecision decision{.status = status,
                                 .shouldPreventSleep = status == GuardStatus::keepingAwake,
                                 .shouldSleepNow = sleepNow};
    commands.clear();
    now = Timestamp(std::chrono::duration<double>(1e9 + at));
    keepAwake->apply(makeWish(decision, settings, power, lid, heat, now));
    return commands;
  }
  bool isAwake() const { return controller->appliedLetDisplaySleep().has_value(); }
};

constexpr auto working = GuardStatus::keepingAwake;
constexpr auto watching = GuardStatus::watching;

TEST(KeepAwake, ReleasesALidClosedKeepAwakeAfterTheDelayAndThenSleeps) {
  Fixture fixture;
  EXPECT_EQ(fixture.tick(0, working), "engage");
  EXPECT_EQ(fixture.tick(2, working), "");
  EXPECT_EQ(fixture.tick(4, watching, true), "") << "held awake, cannot sleep yet";
  EXPECT_EQ(fixture.tick(63.9, watching), "");
  EXPECT_TRUE(fixture.isAwake());
  EXPECT_EQ(fixture.tick(64, watching), "restore, sleep");
  EXPECT_FALSE(fixture.isAwake() || fixture.controller->isLidClosedProtectionEngaged());
  EXPECT_EQ(fixture.tick(66, watching), "");

  // Work that comes back in time calls the sleep off; danger does not wait.
  fixture.tick(70, working);
  fixture.tick(72, watching, true);
  fixture.tick(74, working);
  fixture.power = {false, 5, ""};
  EXPECT_EQ(fixture.tick(80, GuardStatus::batterySafety), "restore directly, restore");
  fixture.power = {true, {}, ""};
  fixture.tick(82, working);
  EXPECT_EQ(fixture.tick(84, watching), "");
  fixture.heat = ThermalState::critical;
  EXPECT_EQ(fixture.tick(86, watching), "restore directly, restore");
  fixture.heat = ThermalState::nominal;

  // Nor does the machine fall asleep under the hands of who opens the lid.
  fixture.tick(90, working);
  fixture.tick(92, watching, true);
  fixture.lid = LidState::open;
  fixture.tick(94, watching);
  EXPECT_EQ(fixture.tick(152, watching), "restore");
}

TEST(KeepAwake, ARefusedPromptIsNotShownOnEveryTick) {
  Fixture fixture;
  fixture.refuses = true;
  EXPECT_EQ(fixture.tick(0, working), "engage");
  EXPECT_EQ(fixture.tick(2, working), "");
  EXPECT_TRUE(fixture.isAwake());
  EXPECT_EQ(fixture.tick(899, working), "");
  EXPECT_EQ(fixture.tick(900, working), "engage");
  fixture.settings.keepAwakeWithLidClosed = false;
  EXPECT_EQ(fixture.tick(902, working), "");
  fixture.settings.keepAwakeWithLidClosed = true;
  fixture.refuses = false;
  EXPECT_EQ(fixture.tick(904, working), "engage");

  fixture.refuses = true;
  EXPECT_EQ(fixture.tick(906, GuardStatus::off), "restore, restore directly");
  EXPECT_EQ(fixture.tick(908, GuardStatus::off), "");
  EXPECT_FALSE(fixture.isAwake());
  EXPECT_TRUE(fixture.keepAwake->held().isRestoreOpen);
  EXPECT_EQ(fixture.tick(910, watching), "") << "no new delay, no new prompt";
  EXPECT_EQ(fixture.tick(972, watching), "");
  for (double at = 980; at < 1000; at += 4) {
    EXPECT_EQ(fixture.tick(at, working) + fixture.tick(at + 2, GuardStatus::off), "")
        << "whatever it does";
  }
  fixture.refuses = false;
  EXPECT_EQ(fixture.tick(1806, GuardStatus::off), "restore");
  EXPECT_EQ(fixture.notices, 2);
}

TEST(KeepAwake, DangerDoesNotWaitForTheEndOfAPause) {
  Fixture fixture;
  fixture.tick(0, working);
  fixture.refuses = true;
  fixture.tick(2, GuardStatus::off);
  fixture.power = {false, 5, ""};
  const auto low = GuardStatus::batterySafety;
  EXPECT_EQ(fixture.tick(4, low, true), "restore directly, sleep, restore, restore directly");
  EXPECT_EQ(fixture.tick(6, low, true), "") << "as long as the setting holds the machine awake";
  EXPECT_EQ(fixture.tick(64, low, true), "restore directly, sleep");
  fixture.power = {true, {}, ""};
  fixture.tick(66, working);
  fixture.power = {false, 5, ""};
  EXPECT_EQ(fixture.tick(68, low, true), "restore directly, sleep") << "asked once";
  fixture.refuses = false;
  EXPECT_EQ(fixture.tick(904, low, true), "restore directly, sleep, restore, sleep");
}

TEST(KeepAwake, ASleepIsDroppedForWhatIsWantedSinceThePrompt) {
  Fixture fixture;
  fixture.tick(0, working);
  fixture.tick(2, watching, true);
  fixture.isNewest = false;
  EXPECT_EQ(fixture.tick(62, watching), "restore");
  EXPECT_EQ(fixture.tick(64, working), "engage");
}

TEST(KeepAwake, LooksAtWhatAPromptHasDone) {
  Fixture fixture;
  fixture.lies = true;
  EXPECT_EQ(fixture.tick(0, working), "engage");
  EXPECT_EQ(fixture.tick(2, working), "");
  EXPECT_EQ(fixture.notices, 1) << "it was allowed, and is not so";
  fixture.lies = false;
  EXPECT_EQ(fixture.tick(900, working), "engage");
  fixture.lies = true;
  EXPECT_EQ(fixture.tick(902, GuardStatus::off), "restore");
  EXPECT_TRUE(fixture.controller->isLidClosedProtectionEngaged());
  EXPECT_EQ(fixture.tick(904, GuardStatus::off), "");
  fixture.lies = false;
  EXPECT_EQ(fixture.tick(1802, GuardStatus::off), "restore");
  fixture.sleepDisabled = true;  // late
  EXPECT_EQ(fixture.tick(1804, GuardStatus::off), "restore");
}

TEST(KeepAwake, AToolIsBelievedOnceItHasRunForAWhile) {
  Fixture fixture("echo >> $HOME/starts; [ -e $HOME/works ] && exec sleep 60");
  fixture.settings.keepAwakeWithLidClosed = false;
  const auto starts = [&] { return contentOf(fixture.home.path() / "starts").size(); };
  const auto ended = [&] { return eventually([&] { return !fixture.isAwake(); }); };
  fixture.tick(0, working);
  EXPECT_TRUE(ended());
  for (const double at : {2, 4, 61}) fixture.tick(at, working);
  EXPECT_EQ(starts(), 1U);
  writeFile(fixture.home.path() / "works", "");
  fixture.tick(62, working);
  EXPECT_TRUE(eventually([&] { return starts() == 2; }));
  fixture.tick(76, working);
  EXPECT_FALSE(fixture.keepAwake->held().isToolProven);
  fixture.tick(77, working);
  EXPECT_TRUE(fixture.keepAwake->held().isToolProven);
  for (const double at : {80, 20}) {  // then the clock has been set back
    ::kill(SleepController::readCaffeinatePIDs().at(0), SIGKILL);
    EXPECT_TRUE(ended());
    fixture.tick(at, working);
    EXPECT_TRUE(fixture.isAwake()) << "no pause for a tool that works";
  }
  EXPECT_EQ(fixture.notices, 2);
}

TEST(KeepAwake, AToolThatGivesItsWordIsBelievedThenAndNoSooner) {
  // Says what is in $HOME/word, and fails with what is in $HOME/failure.
  Fixture fixture(
      "[ ! -e $HOME/failure ] || { cat $HOME/failure >&2; exit 1; }\n"
      "[ ! -e $HOME/hangs ] || exec sleep 60\ncat $HOME/word; exec sleep 60",
      2);
  fixture.settings.keepAwakeWithLidClosed = false;
  const auto put = [&](const char* name, const char* text) {
    writeFile(fixture.home.path() / name, text);
  };
  const auto drop = [&](const char* name) { std::filesystem::remove(fixture.home.path() / name); };
  const auto says = [&] { return describe(fixture.keepAwake->held()); };
  put("word", "ready\n");
  put("failure", "no bus\n");
  fixture.tick(0, working);
  EXPECT_EQ(says(), "cannot be kept awake: no bus");
  drop("failure");
  fixture.tick(2, working);
  EXPECT_EQ(says(), "kept awake, display too") << "no pause";

  // Another posture: what holds stays until its successor does.
  const auto first = SleepController::readCaffeinatePIDs();
  fixture.settings.letDisplaySleep = true;
  put("hangs", "");
  fixture.tick(4, working);
  EXPECT_EQ(says(),
            "kept awake, display too, but with its display as before: no answer within 2 s");
  EXPECT_EQ(SleepController::readCaffeinatePIDs(), first);
  drop("hangs");
  put("word", "only half\n");
  fixture.tick(6, working);
  EXPECT_EQ(says(), "kept awake, display may sleep, but only half");
  EXPECT_EQ(fixture.ends, 0);

  ::kill(SleepController::readCaffeinatePIDs().at(0), SIGKILL);
  EXPECT_TRUE(eventually([&] { return fixture.ends == 1; }));
  put("word", "ready\n");
  fixture.tick(8, working);
  EXPECT_EQ(says(), "kept awake, display may sleep");
  fixture.tick(10, watching);
  EXPECT_EQ(fixture.ends, 1) << "it was stopped";
}

TEST(KeepAwake, ARefusedSleepIsAskedForAgainWhileItStands) {
  Fixture fixture;
  fixture.settings.keepAwakeWithLidClosed = false;
  fixture.sleepRefusal = "held off by backup";
  fixture.tick(0, working);
  EXPECT_EQ(fixture.tick(2, watching, true), "sleep");
  EXPECT_EQ(fixture.tick(4, watching) + fixture.tick(61, watching), "");
  EXPECT_EQ(fixture.tick(62, watching), "sleep");
  fixture.tick(64, working);
  EXPECT_EQ(fixture.tick(130, watching), "") << "work has called it off";

  fixture.lid = LidState::open;  // somebody may sit there
  EXPECT_EQ(fixture.tick(1000, watching, true), "sleep");
  EXPECT_EQ(fixture.tick(1599, watching), "sleep");
  EXPECT_EQ(fixture.tick(1660, watching), "");
  fixture.sleepRefusal = "";
  EXPECT_EQ(fixture.tick(1800, watching), "");
}

}  // namespace
}  // namespace wakelatch::host
