#include "WakelatchCore/AgentStateMachine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace wakelatch {
namespace {

using enum GuardStatus;
using enum SignalStrength;
constexpr auto open = LidState::open, closed = LidState::closed;
constexpr auto watch = AppMode::watchAgentUI, manual = AppMode::manualKeepAwake;
constexpr auto unlimited = AppMode::pluggedInUnlimited;
constexpr auto critical = ThermalState::critical;

const Timestamp start{std::chrono::duration<double>(1'700'000'000.25)};
const PowerSnapshot ac{true, 10, ""};

PowerSnapshot onBattery(std::optional<std::int64_t> percent) {
  return {false, percent, ""};
}

/// One evaluation; the defaults are an idle tick on external power with the lid open.
struct Tick {
  AppMode mode = watch;
  PowerSnapshot power = ac;
  LidState lid = open;
  SignalStrength strength = none;
  bool preventing = false;
  ThermalState thermal = ThermalState::nominal;
  double at = 0;  // seconds after `start`
};

struct Guard {
  AgentStateMachine machine;
  GuardSettings settings;

  GuardDecision operator()(const Tick& tick) {
    return machine.evaluate(tick.mode, settings, tick.power, tick.lid,
                            {tick.strength, "Codex CLI", "Codex CLI is busy"}, tick.preventing,
                            tick.thermal, after(start, tick.at));
  }
};

TEST(AgentStateMachine, EachRuleGivesItsDecision) {
  enum Also { nothing, sleeps, warns };
  struct Row {
    Tick tick;
    GuardStatus status;
    std::string reason;  ///< how it begins
    Also also = nothing;
  };
  for (const Row& row : std::vector<Row>{
           {{.mode = AppMode::off, .power = onBattery(5)}, off, "Lumenhold"},
           {{.mode = AppMode::off, .power = onBattery(25)}, off, "Lumenhold", warns},
           {{manual, onBattery({}), open, none, true}, watching, "Battery level"},
           {{watch, onBattery(20), open, none, true}, batterySafety, "Battery is", sleeps},
           {{.power = onBattery(20)}, batterySafety, "Battery is"},
           {{.power = onBattery(21)}, watching, "No active", warns},
           {{.power = onBattery(30)}, watching, "No active", warns},
           {{.power = onBattery(31)}, watching, "No active"},
           {{.power = ac}, watching, "No active"},
           {{.power = {true, {}, ""}}, watching, "No active"},
           {{manual, ac, closed, none, true, critical}, thermalSafety, "Thermal", sleeps},
           {{watch, onBattery(25), open, none, true, critical}, thermalSafety, "Thermal", warns},
           {{watch, ac, LidState::unknown, none, true, critical}, thermalSafety, "Thermal"},
           {{.lid = closed, .thermal = critical}, thermalSafety, "Thermal"},
           {{.mode = manual, .thermal = ThermalState::serious}, keepingAwake, "Manual"},
           {{.mode = unlimited}, pluggedInUnlimited, "AC power"},
           {{unlimited, onBattery(50), open, strong}, keepingAwake, "Codex"},
           {{.power = onBattery(25), .strength = weak}, keepingAwake, "Codex", warns},
           {{.strength = presence}, watching, "Target"},
       }) {
    const GuardDecision decision = Guard()(row.tick);
    const bool prevents = row.status == keepingAwake || row.status == pluggedInUnlimited;
    EXPECT_EQ(decision, (GuardDecision{row.status, prevents, row.also == sleeps, "Codex CLI",
                                       decision.reason, row.also == warns}));
    EXPECT_EQ(decision.reason.find(row.reason), 0u) << decision.reason;
  }
  Guard limited;
  limited.settings.setAllowUnlimitedWhilePluggedIn(false);
  limited.settings.batteryProfile.allowUnlimitedKeepAwake = true;  // plays no part
  EXPECT_EQ(limited({.mode = unlimited}).status, watching);
}

TEST(AgentStateMachine, GraceEndsExactlyAfterThePeriodOfTheProfileInForce) {
  Guard guard;
  guard.settings.pluggedInProfile.idleGracePeriodSeconds = 30;
  guard({.strength = strong});
  const std::vector<std::pair<Tick, GuardStatus>> ticks = {
      {{.at = 29.9}, idleGrace},
      {{.at = 30}, watching},
      {{.power = onBattery(50), .at = 89.9}, idleGrace},
      {{.power = onBattery(50), .at = 90}, watching},
      {{.strength = presence, .at = -5}, idleGrace},  // the clock was set back
  };
  for (const auto& [tick, status] : ticks) EXPECT_EQ(guard(tick).status, status) << tick.at;
}

TEST(AgentStateMachine, CompletionSleepNeedsLidOrSettings) {
  constexpr auto afterWork = AppMode::sleepAfterCurrentWork;
  using Row = std::tuple<LidState, AppMode, bool, bool, bool>;
  for (const auto& [lid, mode, afterCompletion, onlyIfClosed, sleeps] :
       {Row{closed, watch, false, true, true}, Row{open, watch, true, true, false},
        Row{LidState::unknown, watch, true, true, false}, Row{open, watch, true, false, true},
        Row{open, watch, false, false, false}, Row{open, afterWork, false, false, true},
        Row{open, afterWork, true, true, false}}) {
    Guard guard;
    guard.settings.setSleepAfterCompletion(afterCompletion);
    guard.settings.setSleepOnlyIfLidClosed(onlyIfClosed);
    const Tick idle{.mode = mode, .lid = lid, .at = 200};
    EXPECT_FALSE(guard(idle).shouldSleepNow) << "never without work seen";
    guard({.mode = mode, .strength = weak});
    EXPECT_EQ(guard(idle).shouldSleepNow, sleeps);
  }
}

TEST(AgentStateMachine, SleepIsAskedForOnceUntilSomethingRearmsIt) {
  Guard guard;
  const auto sleeps = [&] { return guard({.lid = closed, .at = 500}).shouldSleepNow; };
  const auto sleepsAfter = [&](const Tick& tick) { return guard(tick), sleeps(); };
  const auto sleepsAfterWorkAnd = [&](const Tick& tick) {
    guard.machine.markActive(start);
    return sleepsAfter(tick);
  };
  guard.machine.markFinished(after(start, 500), 90);
  EXPECT_TRUE(sleeps());
  EXPECT_FALSE(sleeps());
  EXPECT_TRUE(sleepsAfter({.mode = manual}));
  EXPECT_TRUE(sleepsAfter({.mode = unlimited}));
  EXPECT_TRUE(sleepsAfter({.strength = strong}));
  // A safety release that asks for sleep uses it up; one that asks for none does not.
  EXPECT_TRUE(sleepsAfterWorkAnd({.power = onBattery(3)}));
  EXPECT_FALSE(sleepsAfterWorkAnd({.power = onBattery(3), .preventing = true}));
  EXPECT_FALSE(sleepsAfterWorkAnd({.lid = closed, .preventing = true, .thermal = critical}));
  EXPECT_FALSE(sleepsAfterWorkAnd({.mode = AppMode::off}));
  guard.machine.markActive(start);
  guard.machine.reset();
  EXPECT_FALSE(sleeps());
}

TEST(SleepReleasePolicy, HoldsOnlyWatchingWhileEngaged) {
  const auto plan = SleepReleasePolicy::planRelease;
  const Timestamp since = after(start, -59);
  EXPECT_EQ(plan(watching, true, {}, start, 60).pendingSince, start);
  EXPECT_EQ(plan(watching, true, since, start, 60).pendingSince, since);
  EXPECT_FALSE(plan(watching, true, since, start, 59).isHold());
  EXPECT_FALSE(plan(watching, true, {}, start, 0).isHold());
  for (const auto status : {watching, batterySafety, thermalSafety, off})
    EXPECT_FALSE(plan(status, status != watching, since, start, 60).isHold());
}

}  // namespace
}  // namespace wakelatch
