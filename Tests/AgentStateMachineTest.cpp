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

const std::string
    isOff = "Lumenhold is off",
    cutoff = "Battery is at or below cutoff", noSignal = "No active agent signal",
    busy = "Codex CLI is busy",
    unknownLevel = "Battery level unavailable — releasing keep-awake to protect the battery",
    heat = "Thermal pressure is critical — releasing keep-awake so the Mac can cool down",
    byHand = "Manual keep-awake mode is enabled",
    withoutLimit = "AC power is connected and plugged-in unlimited mode is enabled",
    inGrace = "No current active signal; waiting through idle grace",
    present = "Target app is present but no active-work signal was found";

const Timestamp firstTick{std::chrono::duration<double>(1'700'000'000.25)};
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
  double at = 0;  // seconds after `firstTick`
};

struct Guard {
  AgentStateMachine machine;
  GuardSettings settings;

  GuardDecision operator()(const Tick& tick) {
    return machine.evaluate(tick.mode, settings, tick.power, tick.lid,
                            {tick.strength, "Codex CLI", busy}, tick.preventing, tick.thermal,
                            after(firstTick, tick.at));
  }
};

TEST(AgentStateMachine, EachRuleGivesItsDecision) {
  enum Also { nothing, sleeps, warns };
  const struct {
    Tick tick;
    GuardStatus status;
    const std::string& reason;
    Also also = nothing;
  } rows[] = {{{.mode = AppMode::off, .power = onBattery(5)}, off, isOff},
              {{.mode = AppMode::off, .power = onBattery(25)}, off, isOff, warns},
              {{manual, onBattery({}), open, none, true}, watching, unknownLevel},
              {{watch, onBattery(20), open, none, true}, batterySafety, cutoff, sleeps},
              {{.power = onBattery(20)}, batterySafety, cutoff},
              {{.power = onBattery(21)}, watching, noSignal, warns},
              {{.power = onBattery(30)}, watching, noSignal, warns},
              {{.power = onBattery(31)}, watching, noSignal},
              {{.power = {true, {}, ""}}, watching, noSignal},
              {{manual, ac, closed, none, true, critical}, thermalSafety, heat, sleeps},
              {{watch, onBattery(25), open, none, true, critical}, thermalSafety, heat, warns},
              {{watch, ac, LidState::unknown, none, true, critical}, thermalSafety, heat},
              {{.lid = closed, .thermal = critical}, thermalSafety, heat},
              {{.mode = manual, .thermal = ThermalState::serious}, keepingAwake, byHand},
              {{.mode = unlimited}, pluggedInUnlimited, withoutLimit},
              {{unlimited, onBattery(50), open, strong}, keepingAwake, busy},
              {{.power = onBattery(25), .strength = weak}, keepingAwake, busy, warns},
              {{.strength = presence}, watching, present}};
  for (const auto& row : rows) {
    const bool prevents = row.status == keepingAwake || row.status == pluggedInUnlimited;
    EXPECT_EQ(Guard()(row.tick), (GuardDecision{row.status, prevents, row.also == sleeps,
                                                "Codex CLI", row.reason, row.also == warns}));
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
  EXPECT_EQ(guard({.at = 1}), (GuardDecision{idleGrace, true, false, "Codex CLI", inGrace, false}));
  guard.machine.markFinished(firstTick, 30);
  EXPECT_EQ(guard.machine.memory().lastActiveSignalAt, after(firstTick, -31));
}

TEST(AgentStateMachine, CompletionSleepNeedsLidOrSettings) {
  constexpr auto afterWork = AppMode::sleepAfterCurrentWork;
  const struct {
    LidState lid = open;
    AppMode mode = watch;
    bool afterCompletion = false, onlyIfClosed = false, sleeps = false;
  } rows[] = {{.lid = closed, .onlyIfClosed = true, .sleeps = true},
              {.afterCompletion = true, .onlyIfClosed = true},
              {.lid = LidState::unknown, .afterCompletion = true, .onlyIfClosed = true},
              {.afterCompletion = true, .sleeps = true},
              {},
              {.mode = afterWork, .sleeps = true},
              {.mode = afterWork, .afterCompletion = true, .onlyIfClosed = true}};
  for (const auto& row : rows) {
    Guard guard;
    guard.settings.setSleepAfterCompletion(row.afterCompletion);
    guard.settings.setSleepOnlyIfLidClosed(row.onlyIfClosed);
    const Tick idle{.mode = row.mode, .lid = row.lid, .at = 200};
    EXPECT_FALSE(guard(idle).shouldSleepNow) << "never without work seen";
    guard({.mode = row.mode, .strength = weak});
    EXPECT_EQ(guard(idle).shouldSleepNow, row.sleeps);
  }
}

TEST(AgentStateMachine, SleepIsAskedForOnceUntilSomethingRearmsIt) {
  Guard guard;
  const auto sleeps = [&] { return guard({.lid = closed, .at = 500}).shouldSleepNow; };
  const auto sleepsAfter = [&](const Tick& tick) { return guard(tick), sleeps(); };
  const auto sleepsAfterWorkAnd = [&](const Tick& tick) {
    guard.machine.markActive(firstTick);
    return sleepsAfter(tick);
  };
  guard.machine.markActive(firstTick);
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
  guard.machine.markActive(firstTick);
  guard.machine.reset();
  EXPECT_FALSE(sleeps());
}

TEST(SleepReleasePolicy, HoldsOnlyWatchingWhileEngaged) {
  const auto plan = SleepReleasePolicy::planRelease;
  const Timestamp since = after(firstTick, -59);
  EXPECT_EQ(plan(watching, true, {}, firstTick, 60).pendingSince, firstTick);
  EXPECT_EQ(plan(watching, true, since, firstTick, 60).pendingSince, since);
  EXPECT_FALSE(plan(watching, true, since, firstTick, 59).isHold());
  EXPECT_FALSE(plan(watching, true, {}, firstTick, 0).isHold());
  for (const auto status : {watching, batterySafety, thermalSafety, off})
    EXPECT_FALSE(plan(status, status != watching, since, firstTick, 60).isHold());
}

}  // namespace
}  // namespace wakelatch
