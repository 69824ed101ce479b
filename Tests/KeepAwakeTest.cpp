#include "Host/KeepAwake.h"

#include <gtest/gtest.h>

#include <optional>

#include "Tests/HostProgram.h"
#include "Tests/TemporaryFolder.h"
#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {
namespace {

/// A host's hands over tools that only remember what they were asked for.
struct Rig : CommandRunning {
  TemporaryHome home;
  std::string commands;  ///< but for reading the setting
  int notices = 0;
  bool refuses = false;  ///< the user refuses every prompt
  bool sleepDisabled = false;
  FileLogger logger;
  std::optional<SleepController> controller;
  std::optional<KeepAwake> keepAwake;
  GuardSettings settings;
  LidState lid = LidState::closed;
  ThermalState heat = ThermalState::nominal;

  Rig() {
    const auto tool = home.path() / "caffeinate";
    writeScript(tool, "exec sleep 60");
    controller.emplace(*this, *this, logger, tool.string());
    keepAwake.emplace(*controller, 60, [this](const std::string&) { ++notices; });
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
    if (prompts) sleepDisabled = engages;
    return {0, "", ""};
  }

  /// One tick; returns what was asked of the tools.
  std::string tick(double at, GuardStatus status, bool sleepNow = false) {
    const GuardDecision decision{.status = status,
                                 .shouldPreventSleep = status == GuardStatus::keepingAwake,
                                 .shouldSleepNow = sleepNow};
    commands.clear();
    keepAwake->apply(decision, settings, lid, heat,
                     Timestamp(std::chrono::duration<double>(1e9 + at)));
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
  EXPECT_EQ(rig.tick(80, GuardStatus::batterySafety), "restore");
  rig.tick(82, working);
  EXPECT_EQ(rig.tick(84, watching), "");
  rig.heat = ThermalState::critical;
  EXPECT_EQ(rig.tick(86, watching), "restore");
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
  EXPECT_EQ(rig.tick(910, watching), "") << "no new delay, no new prompt";
  EXPECT_EQ(rig.tick(972, watching), "");
  rig.refuses = false;
  EXPECT_EQ(rig.tick(1806, GuardStatus::off), "restore");
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
