#include "Host/Pace.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include "Tests/ScriptedRunner.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

constexpr Timestamp start{std::chrono::duration<double>(1'700'000'000)};

TEST(Pace, IsQuietOnceThereHasBeenNothingToLoseForAWhile) {
  const struct {
    const char* what;
    std::function<void(OneTick&, Held&)> happens;
  } rows[] = {
      {"an agent's process", [](auto& tick, auto&) { tick.seen.evidence.process.emplace_back(); }},
      {"a signal", [](auto& tick, auto&) { tick.seen.evidence.merged.emplace_back(); }},
      {"a record", [](auto& tick, auto&) { tick.seen.evidence.turns.emplace_back(); }},
      {"a file that no process wrote",
       [](auto& tick, auto&) { tick.seen.evidence.session.dropped.emplace_back(); }},
      {"a text without a process",
       [](auto& tick, auto&) { tick.seen.evidence.accessibility.dropped.emplace_back(); }},
      {"keeping awake", [](auto& tick, auto&) { tick.decision.shouldPreventSleep = true; }},
      {"a sleep", [](auto& tick, auto&) { tick.decision.shouldSleepNow = true; }},
      {"grace", [](auto& tick, auto&) { tick.decision.status = GuardStatus::idleGrace; }},
      {"a tool that runs", [](auto&, auto& held) { held.letDisplaySleep = false; }},
      {"a tool that is wanted", [](auto&, auto& held) { held.isToolWanted = true; }},
      {"lid-closed mode", [](auto&, auto& held) { held.isLidClosedEngaged = true; }},
      {"an open restore", [](auto&, auto& held) { held.isRestoreOpen = true; }},
      {"a prompt", [](auto&, auto& held) { held.prompt = "x"; }},
      {"a release to come", [](auto&, auto& held) { held.releaseDueAt = start; }}};
  for (const auto& row : rows) {
    Pace pace;
    const auto isQuietAt = [&](double seconds, const auto& happens) {
      const auto tick = std::make_unique<OneTick>();
      Held held;
      tick->seen.at = after(start, seconds);
      happens(*tick, held);
      pace.follow(*tick, held);
      return pace.isQuiet();
    };
    const auto nothing = [](OneTick&, Held&) {};
    EXPECT_FALSE(isQuietAt(0, nothing));
    EXPECT_FALSE(isQuietAt(Pace::patience - 2, nothing));
    EXPECT_TRUE(isQuietAt(Pace::patience, nothing));
    EXPECT_FALSE(isQuietAt(Pace::patience + 8, row.happens)) << row.what;
    EXPECT_FALSE(isQuietAt(Pace::patience + 10, nothing)) << row.what;
  }
}

TEST(Pace, PowerAndLidAreAskedForSeldomInQuietTimes) {
  const struct {
    double seconds;
    bool isQuiet, isAsked;
  } rows[] = {{0, true, true},   {8, true, false},  {29, true, false}, {30, true, true},
              {32, false, true}, {34, false, true}, {36, true, false}, {-100, true, true}};
  const TemporaryHome home;
  ScriptedRunner tools;  // which fail
  MachineSources machine(tools);
  Observer observer(machine.sources(), {});
  for (const auto& row : rows) {
    tools.calls.clear();
    observer.setQuiet(row.isQuiet);
    observer.look({}, after(start, row.seconds));
    const auto asked =
        std::count_if(tools.calls.begin(), tools.calls.end(),
                      [](const ShellCommand& command) { return command.executable != "/bin/ps"; });
    EXPECT_EQ(asked, row.isAsked ? 2 : 0) << row.seconds;
  }
}

}  // namespace
}  // namespace wakelatch::host
