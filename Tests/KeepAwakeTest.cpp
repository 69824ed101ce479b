#include "Host/KeepAwake.h"

#include <gmock/gmock.h>

#include <optional>

#include "Tests/HostProgram.h"
#include "Tests/TemporaryFolder.h"
#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A host's hands over tools that only remember what they were asked for.
struct Rig : CommandRunning {
  TemporaryHome home;
  std::vector<std::string> commands;  ///< but for reading the setting
  std::vector<std::string> notices;
  bool refuses = false;  ///< the user refuses every prompt
  bool sleepDisabled = false;
  FileLogger logger;
  std::optional<SleepController> controller;
  std::optional<KeepAwake> keepAwake;
  GuardSettings settings;
  LidState lid = LidState::closed;

  Rig() {
    const auto tool = home.path() / "caffeinate";
    writeScript(tool, "exec sleep 60");
    controller.emplace(*this, *this, logger, tool.string());
    keepAwake.emplace(*controller, 60,
                      [this](const std::string& notice) { notices.push_back(notice); });
    settings.keepAwakeWithLidClosed = true;
  }

  CommandResult run(const ShellCommand& command) override {
    const std::string last = command.arguments.back();
    if (last == "-g") return {0, sleepDisabled ? "SleepDisabled 1" : "SleepDisabled 0", ""};
    const bool engages = last.find("disablesleep 1") != std::string::npos;
    const bool prompts = last.find("prompt") != std::string::npos;
    commands.push_back(last == "sleepnow" ? "sleep"
                       : !prompts         ? "direct restore"
                       : engages          ? "engage"
                                          : "restore");
    if (prompts ? refuses : last == "0") throw CommandRunnerError::nonZeroExit({1, "", "refused"});
    if (prompts) sleepDisabled = engages;
    return {0, "", ""};
  }

  /// One tick; returns what was asked of the tools.
  std::vector<std::string> tick(double at, GuardStatus status, bool sleepNow = false) {
    GuardDecision decision;
    decision.status = status;
    decision.shouldPreventSleep = status == GuardStatus::keepingAwake;
    decision.shouldSleepNow = sleepNow;
    commands.clear();
    keepAwake->apply(decision, settings, lid, Timestamp(std::chrono::duration<double>(1e9 + at)));
    return commands;
  }
  bool isAwake() const { return controller->appliedLetDisplaySleep().has_value(); }
};

constexpr auto working = GuardStatus::keepingAwake;
constexpr auto watching = GuardStatus::watching;

TEST(KeepAwake, ReleasesALidClosedKeepAwakeAfterTheDelayAndThenSleeps) {
  Rig rig;
  EXPECT_THAT(rig.tick(0, working), ElementsAre("engage"));
  EXPECT_THAT(rig.tick(2, working), IsEmpty());
  EXPECT_THAT(rig.tick(4, watching, /*sleepNow=*/true), IsEmpty())
      << "held awake, cannot sleep yet";
  EXPECT_THAT(rig.tick(63.9, watching), IsEmpty());
  EXPECT_TRUE(rig.isAwake());
  EXPECT_THAT(rig.tick(64, watching), ElementsAre("restore", "sleep"));
  EXPECT_FALSE(rig.isAwake() || rig.controller->isLidClosedProtectionEngaged());
  EXPECT_THAT(rig.tick(66, watching), IsEmpty());

  // Work that comes back in time calls the sleep off; danger does not wait.
  rig.tick(70, working);
  rig.tick(72, watching, true);
  rig.tick(74, working);
  EXPECT_THAT(rig.tick(80, GuardStatus::batterySafety), ElementsAre("restore"));

  // Nor does the machine fall asleep under the hands of who opens the lid.
  rig.tick(90, working);
  rig.tick(92, watching, true);
  rig.lid = LidState::open;
  rig.tick(94, watching);
  EXPECT_THAT(rig.tick(152, watching), ElementsAre("restore"));
}

TEST(KeepAwake, ARefusedPromptIsNotShownOnEveryTick) {
  Rig rig;
  rig.refuses = true;
  EXPECT_THAT(rig.tick(0, working), ElementsAre("engage"));
  EXPECT_THAT(rig.tick(2, working), IsEmpty());
  EXPECT_TRUE(rig.isAwake());
  EXPECT_THAT(rig.tick(899, working), IsEmpty());
  EXPECT_THAT(rig.tick(900, working), ElementsAre("engage"));
  rig.settings.keepAwakeWithLidClosed = false;
  EXPECT_THAT(rig.tick(902, working), IsEmpty());
  rig.settings.keepAwakeWithLidClosed = true;
  rig.refuses = false;
  EXPECT_THAT(rig.tick(904, working), ElementsAre("engage"));

  rig.refuses = true;
  EXPECT_THAT(rig.tick(906, GuardStatus::off), ElementsAre("restore", "direct restore"));
  EXPECT_THAT(rig.tick(908, GuardStatus::off), IsEmpty());
  EXPECT_FALSE(rig.isAwake());
  EXPECT_THAT(rig.tick(910, watching), IsEmpty()) << "no new delay, no new prompt";
  EXPECT_THAT(rig.tick(972, watching), IsEmpty());
  rig.refuses = false;
  EXPECT_THAT(rig.tick(1806, GuardStatus::off), ElementsAre("restore"));
  EXPECT_EQ(rig.notices.size(), 2u);
}

TEST(KeepAwake, LidClosedModeSwitchedOffWhileEngagedIsRestored) {
  Rig rig;
  rig.tick(0, working);
  rig.settings.keepAwakeWithLidClosed = false;
  EXPECT_THAT(rig.tick(2, working), ElementsAre("restore"));
  EXPECT_TRUE(rig.isAwake());
  EXPECT_FALSE(rig.controller->isLidClosedProtectionEngaged());
}

TEST(KeepAwake, StartingUpNeverTakesOverAForeignSetting) {
  Rig rig;
  rig.sleepDisabled = true;
  rig.keepAwake->startUp(Timestamp());
  EXPECT_THAT(rig.commands, IsEmpty());
  ASSERT_EQ(rig.notices.size(), 1u);
  EXPECT_THAT(rig.notices[0], testing::HasSubstr("wakelatch restore --adopt"));
}

}  // namespace
}  // namespace wakelatch::host
