#include "Host/KeepAwake.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <filesystem>
#include <optional>

#include "Tests/HostProgram.h"
#include "Tests/TemporaryFolder.h"
#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {
namespace {

/// The acting side over tools that only remember what they were asked for.
struct Rig : CommandRunning {
  TemporaryHome home;
  std::string commands;  ///< but for reading the setting
  int notices = 0;
  bool refuses = false;  ///< the user refuses every prompt
  bool lies = false;     ///< a prompt ends well and does nothing
  bool isNewest = true;
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

  explicit Rig(const std::string& toolScript = "exec sleep 60") {
    const auto tool = home.path() / "caffeinate";
    writeScript(tool, toolScript);
    controller.emplace(*this, *this, logger, tool.string());
    const KeepAwake::Hooks hooks{{.promptShown = [](const auto&) {},
                                  .isCancelled = [] { return false; },
                                  .now = [this] { return now; }},
                                 [this] { return isNewest; }};
    keepAwake.emplace(*controller, notifier, 60, hooks);
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
  Rig rig;
  EXPECT_EQ(rig.tick(0, working), "engage");
  EXPECT_EQ(rig.tick(2, working), "");
  EXPECT_EQ(rig.tick(4, watching, true), "") << "held awake, cannot sleep yet";
  EXPECT_EQ(rig.tick(63.9, watching), "");
  EXPECT_TRUE(rig.isAwake());
  EXPECT_EQ(rig.tick(64, watching), "restore, sleep");
  EXPECT_FALSE(rig.isAwake() || rig.controller->isLidClosedProtectionEngaged());
  EXPECT_EQ(rig.tick(66, watching), "");

  // Work that comes back in time calls the sleep off; danger does not wait.
  rig.tick(70, working);
  rig.tick(72, watching, true);
  rig.tick(74, working);
  rig.power = {false, 5, ""};
  EXPECT_EQ(rig.tick(80, GuardStatus::batterySafety), "restore directly, restore");
  rig.power = {true, {}, ""};
  rig.tick(82, working);
  EXPECT_EQ(rig.tick(84, watching), "");
  rig.heat = ThermalState::critical;
  EXPECT_EQ(rig.tick(86, watching), "restore directly, restore");
  rig.heat = ThermalState::nominal;

  // Nor does the machine fall asleep under the hands of who opens the lid.
  rig.tick(90, working);
  rig.tick(92, watching, true);
  rig.lid = LidState::open;
  rig.tick(94, watching);
  EXPECT_EQ(rig.tick(152, watching), "restore");
}

TEST(KeepAwake, ARefusedPromptIsNotShownOnEveryTick) {
  Rig rig;
  rig.refuses = true;
  EXPECT_EQ(rig.tick(0, working), "engage");
  EXPECT_EQ(rig.tick(2, working), "");
  EXPECT_TRUE(rig.isAwake());
  EXPECT_EQ(rig.tick(899, working), "");
  EXPECT_EQ(rig.tick(900, working), "engage");
  rig.settings.keepAwakeWithLidClosed = false;
  EXPECT_EQ(rig.tick(902, working), "");
  rig.settings.keepAwakeWithLidClosed = true;
  rig.refuses = false;
  EXPECT_EQ(rig.tick(904, working), "engage");

  rig.refuses = true;
  EXPECT_EQ(rig.tick(906, GuardStatus::off), "restore, restore directly");
  EXPECT_EQ(rig.tick(908, GuardStatus::off), "");
  EXPECT_FALSE(rig.isAwake());
  EXPECT_TRUE(rig.keepAwake->held().isRestoreOpen);
  EXPECT_EQ(rig.tick(910, watching), "") << "no new delay, no new prompt";
  EXPECT_EQ(rig.tick(972, watching), "");
  for (double at = 980; at < 1000; at += 4) {
    EXPECT_EQ(rig.tick(at, working) + rig.tick(at + 2, GuardStatus::off), "") << "whatever it does";
  }
  rig.refuses = false;
  EXPECT_EQ(rig.tick(1806, GuardStatus::off), "restore");
  EXPECT_EQ(rig.notices, 2);
}

TEST(KeepAwake, DangerDoesNotWaitForTheEndOfAPause) {
  Rig rig;
  rig.tick(0, working);
  rig.refuses = true;
  rig.tick(2, GuardStatus::off);
  rig.power = {false, 5, ""};
  const auto low = GuardStatus::batterySafety;
  EXPECT_EQ(rig.tick(4, low, true), "restore directly, sleep, restore, restore directly");
  EXPECT_EQ(rig.tick(6, low, true), "") << "as long as the setting holds the machine awake";
  EXPECT_EQ(rig.tick(64, low, true), "restore directly, sleep");
  rig.power = {true, {}, ""};
  rig.tick(66, working);
  rig.power = {false, 5, ""};
  EXPECT_EQ(rig.tick(68, low, true), "restore directly, sleep") << "asked once";
  rig.refuses = false;
  EXPECT_EQ(rig.tick(904, low, true), "restore directly, sleep, restore, sleep");
}

TEST(KeepAwake, ASleepIsDroppedForWhatIsWantedSinceThePrompt) {
  Rig rig;
  rig.tick(0, working);
  rig.tick(2, watching, true);
  rig.isNewest = false;
  EXPECT_EQ(rig.tick(62, watching), "restore");
  EXPECT_EQ(rig.tick(64, working), "engage");
}

TEST(KeepAwake, LooksAtWhatAPromptHasDone) {
  Rig rig;
  rig.lies = true;
  EXPECT_EQ(rig.tick(0, working), "engage");
  EXPECT_EQ(rig.tick(2, working), "");
  EXPECT_EQ(rig.notices, 1) << "it was allowed, and is not so";
  rig.lies = false;
  EXPECT_EQ(rig.tick(900, working), "engage");
  rig.lies = true;
  EXPECT_EQ(rig.tick(902, GuardStatus::off), "restore");
  EXPECT_TRUE(rig.controller->isLidClosedProtectionEngaged());
  EXPECT_EQ(rig.tick(904, GuardStatus::off), "");
  rig.lies = false;
  EXPECT_EQ(rig.tick(1802, GuardStatus::off), "restore");
  rig.sleepDisabled = true;  // late
  EXPECT_EQ(rig.tick(1804, GuardStatus::off), "restore");
}

TEST(KeepAwake, AToolIsBelievedOnceItHasRunForAWhile) {
  Rig rig("echo >> $HOME/starts; [ -e $HOME/works ] && exec sleep 60");
  rig.settings.keepAwakeWithLidClosed = false;
  const auto starts = [&] { return contentOf(rig.home.path() / "starts").size(); };
  const auto ended = [&] { return eventually([&] { return !rig.isAwake(); }); };
  rig.tick(0, working);
  EXPECT_TRUE(ended());
  for (const double at : {2, 4, 61}) rig.tick(at, working);
  EXPECT_EQ(starts(), 1U);
  writeFile(rig.home.path() / "works", "");
  rig.tick(62, working);
  EXPECT_TRUE(eventually([&] { return starts() == 2; }));
  rig.tick(76, working);
  EXPECT_FALSE(rig.keepAwake->held().isToolProven);
  rig.tick(77, working);
  EXPECT_TRUE(rig.keepAwake->held().isToolProven);
  ::kill(SleepController::readCaffeinatePIDs().at(0), SIGKILL);
  EXPECT_TRUE(ended());
  rig.tick(80, working);
  EXPECT_TRUE(rig.isAwake()) << "no pause for a tool that works";
  EXPECT_EQ(rig.notices, 2);
}

TEST(KeepAwake, LidClosedModeSwitchedOffWhileEngagedIsRestored) {
  Rig rig;
  rig.tick(0, working);
  rig.settings.keepAwakeWithLidClosed = false;
  EXPECT_EQ(rig.tick(2, working), "restore");
  EXPECT_TRUE(rig.isAwake());
}

}  // namespace
}  // namespace wakelatch::host
