#include "WakelatchCore/AgentStateMachine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace wakelatch {
namespace {

using enum GuardStatus;

const Timestamp start{std::chrono::duration<double>(1'700'000'000.25)};
const PowerSnapshot ac{true, 10, ""};
const PowerSnapshot battery50{false, 50, ""};

PowerSnapshot onBattery(std::optional<std::int64_t> percent) {
  return {false, percent, ""};
}

ActivitySignal signalOf(SignalStrength strength) {
  return {.strength = strength, .appName = "Codex CLI", .reason = "Codex CLI is busy"};
}

/// One evaluation; the defaults are an idle tick on external power with the lid open.
struct Tick {
  AppMode mode = AppMode::watchAgentUI;
  PowerSnapshot power = ac;
  LidState lid = LidState::open;
  SignalStrength strength = SignalStrength::none;
  bool preventing = false;
  ThermalState thermal = ThermalState::nominal;
  double at = 0;  // seconds after `start`
};

struct Guard {
  AgentStateMachine machine;
  GuardSettings settings;

  GuardDecision operator()(const Tick& tick) {
    return machine.evaluate(tick.mode, settings, tick.power, tick.lid, signalOf(tick.strength),
                            tick.preventing, tick.thermal, after(start, tick.at));
  }
};

TEST(AgentStateMachine, EachRuleGivesItsDecision) {
  const std::string idle = "No active agent signal";
  const std::string unknownLevel =
      "Battery level unavailable — releasing keep-awake to protect the battery";
  const std::string hot =
      "Thermal pressure is critical — releasing keep-awake so the Mac can cool down";
  const std::string manual = "Manual keep-awake mode is enabled";
  const std::string unlimited = "AC power is connected and plugged-in unlimited mode is enabled";
  const std::string cutoff = "Battery is at or below cutoff";
  constexpr auto critical = ThermalState::critical;
  constexpr auto strong = SignalStrength::strong;
  struct Row {
    std::string what;
    Tick tick;
    GuardStatus status;
    bool prevent, sleepNow;
    std::string reason;
    bool warning;
  };
  const std::vector<Row> rows = {
      {"off wins over an empty battery",
       {.mode = AppMode::off, .power = onBattery(5)},
       off,
       false,
       false,
       "Lumenhold is off",
       false},
      {"off still warns",
       {.mode = AppMode::off, .power = onBattery(25)},
       off,
       false,
       false,
       "Lumenhold is off",
       true},
      {"unknown level releases even manual",
       {.mode = AppMode::manualKeepAwake, .power = onBattery({}), .preventing = true},
       watching,
       false,
       false,
       unknownLevel,
       false},
      {"at cutoff",
       {.power = onBattery(20), .preventing = true},
       batterySafety,
       false,
       true,
       cutoff,
       false},
      {"at cutoff, nothing held",
       {.power = onBattery(20)},
       batterySafety,
       false,
       false,
       cutoff,
       false},
      {"above cutoff", {.power = onBattery(21)}, watching, false, false, idle, true},
      {"at warning", {.power = onBattery(30)}, watching, false, false, idle, true},
      {"above warning", {.power = onBattery(31)}, watching, false, false, idle, false},
      {"low level on external power", {.power = ac}, watching, false, false, idle, false},
      {"no battery on external power",
       {.power = {true, {}, ""}},
       watching,
       false,
       false,
       idle,
       false},
      {"critical heat stops manual",
       {.mode = AppMode::manualKeepAwake,
        .lid = LidState::closed,
        .preventing = true,
        .thermal = critical},
       thermalSafety,
       false,
       true,
       hot,
       false},
      {"critical heat, lid open, warns",
       {.power = onBattery(25), .preventing = true, .thermal = critical},
       thermalSafety,
       false,
       false,
       hot,
       true},
      {"critical heat, lid unknown, not preventing",
       {.lid = LidState::unknown, .thermal = critical},
       thermalSafety,
       false,
       false,
       hot,
       false},
      {"serious heat changes nothing",
       {.mode = AppMode::manualKeepAwake, .thermal = ThermalState::serious},
       keepingAwake,
       true,
       false,
       manual,
       false},
      {"unlimited",
       {.mode = AppMode::pluggedInUnlimited},
       pluggedInUnlimited,
       true,
       false,
       unlimited,
       false},
      {"unlimited on battery is watching",
       {.mode = AppMode::pluggedInUnlimited, .power = battery50, .strength = strong},
       keepingAwake,
       true,
       false,
       "Codex CLI is busy",
       false},
      {"weak is work",
       {.power = onBattery(25), .strength = SignalStrength::weak},
       keepingAwake,
       true,
       false,
       "Codex CLI is busy",
       true},
      {"presence is not",
       {.strength = SignalStrength::presence},
       watching,
       false,
       false,
       "Target app is present but no active-work signal was found",
       false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.what);
    Guard guard;
    const GuardDecision expected{row.status,  row.prevent, row.sleepNow,
                                 "Codex CLI", row.reason,  row.warning};
    EXPECT_EQ(guard(row.tick), expected);
  }
}

TEST(AgentStateMachine, UnlimitedModeNeedsThePluggedInSwitch) {
  Guard guard;
  guard.settings.setAllowUnlimitedWhilePluggedIn(false);
  guard.settings.batteryProfile.allowUnlimitedKeepAwake = true;  // plays no part
  EXPECT_EQ(guard({.mode = AppMode::pluggedInUnlimited}).status, watching);
}

TEST(AgentStateMachine, GraceEndsExactlyAfterThePeriodOfTheProfileInForce) {
  Guard guard;
  guard.settings.pluggedInProfile.idleGracePeriodSeconds = 30;
  guard({.strength = SignalStrength::strong});
  const std::vector<std::pair<Tick, GuardStatus>> ticks = {
      {{.at = 29.9}, idleGrace},
      {{.at = 30}, watching},
      {{.power = battery50, .at = 89.9}, idleGrace},
      {{.power = battery50, .at = 90}, watching},
      {{.strength = SignalStrength::presence, .at = -5}, idleGrace},  // the clock was set back
  };
  for (const auto& [tick, status] : ticks) EXPECT_EQ(guard(tick).status, status) << tick.at;
}

TEST(AgentStateMachine, CompletionSleepNeedsLidOrSettings) {
  constexpr auto afterWork = AppMode::sleepAfterCurrentWork;
  constexpr auto watch = AppMode::watchAgentUI;
  struct Row {
    LidState lid;
    AppMode mode;
    bool afterCompletion, onlyIfClosed, sleeps;
  };
  for (const Row& row : {Row{LidState::closed, watch, false, true, true},
                         Row{LidState::open, watch, true, true, false},
                         Row{LidState::unknown, watch, true, true, false},
                         Row{LidState::open, watch, true, false, true},
                         Row{LidState::open, watch, false, false, false},
                         Row{LidState::open, afterWork, false, false, true},
                         Row{LidState::open, afterWork, true, true, false}}) {
    Guard guard;
    guard.settings.setSleepAfterCompletion(row.afterCompletion);
    guard.settings.setSleepOnlyIfLidClosed(row.onlyIfClosed);
    const Tick idle{.mode = row.mode, .lid = row.lid, .at = 200};
    EXPECT_FALSE(guard(idle).shouldSleepNow) << "never without work seen";
    guard({.mode = row.mode, .strength = SignalStrength::weak});
    EXPECT_EQ(guard(idle).shouldSleepNow, row.sleeps);
    EXPECT_FALSE(guard(idle).shouldSleepNow) << "asked for once only";
  }
}

TEST(AgentStateMachine, SleepIsAskedForOnceUntilSomethingRearmsIt) {
  const Tick idle{.lid = LidState::closed, .at = 500};
  Guard guard;
  const auto sleepsAfter = [&](auto&& event) {
    event();
    return guard(idle).shouldSleepNow;
  };
  guard.machine.markFinished(after(start, 500), 90);
  EXPECT_TRUE(guard(idle).shouldSleepNow);
  EXPECT_FALSE(guard(idle).shouldSleepNow);
  EXPECT_TRUE(sleepsAfter([&] { guard({.mode = AppMode::manualKeepAwake}); }));
  EXPECT_TRUE(sleepsAfter([&] { guard({.mode = AppMode::pluggedInUnlimited}); }));
  EXPECT_TRUE(sleepsAfter([&] { guard.machine.markActive(start); }));
  EXPECT_TRUE(sleepsAfter([&] { guard({.strength = SignalStrength::strong}); }));
  // A safety release that asks for sleep uses it up; one that asks for none does not.
  const Tick empty{.power = onBattery(3), .preventing = true};
  const Tick hot{.lid = LidState::closed, .preventing = true, .thermal = ThermalState::critical};
  EXPECT_FALSE(sleepsAfter([&] { guard.machine.markActive(start), guard(empty); }));
  EXPECT_FALSE(sleepsAfter([&] { guard.machine.markActive(start), guard(hot); }));
  EXPECT_TRUE(
      sleepsAfter([&] { guard.machine.markActive(start), guard({.power = onBattery(3)}); }));
  EXPECT_FALSE(sleepsAfter([&] { guard.machine.markActive(start), guard.machine.reset(); }));
  EXPECT_FALSE(
      sleepsAfter([&] { guard.machine.markActive(start), guard({.mode = AppMode::off}); }));
}

TEST(SleepReleasePolicy, HoldsOnlyWatchingWhileEngaged) {
  using SleepReleasePolicy::Plan;
  struct Row {
    GuardStatus status;
    bool engaged;
    std::optional<double> pendingSince;  // seconds before now
    double delay;
    std::optional<double> heldSince;
  };
  for (const Row& row : {Row{watching, true, {}, 60, 0.0}, Row{watching, true, 59.0, 60, 59.0},
                         Row{watching, true, 60.0, 60, {}}, Row{watching, true, {}, 0, {}},
                         Row{watching, true, -5.0, 60, -5.0}, Row{watching, false, 1.0, 60, {}},
                         Row{batterySafety, true, 1.0, 60, {}},
                         Row{thermalSafety, true, 1.0, 60, {}}, Row{off, true, 1.0, 60, {}}}) {
    const auto before = [](std::optional<double> seconds) {
      return seconds ? std::optional(after(start, -*seconds)) : std::nullopt;
    };
    const Plan plan = SleepReleasePolicy::planRelease(row.status, row.engaged,
                                                      before(row.pendingSince), start, row.delay);
    EXPECT_EQ(plan.pendingSince, before(row.heldSince));
  }
}

}  // namespace
}  // namespace wakelatch
