// What `explain`, `status` and `doctor` say in each situation.
#include <gtest/gtest.h>

#include "Host/Explanation.h"
#include "Host/WatchText.h"

namespace wakelatch::host {
namespace {

TEST(Explanation, SaysWhatChangesNextInEverySituation) {
  using enum SignalStrength;
  using enum AppMode;
  const PowerSnapshot mains{true, {}, ""}, unread{false, {}, ""}, full{false, 55, ""},
      low{false, 20, ""};
  constexpr auto warm = ThermalState::nominal, hot = ThermalState::critical;
  constexpr double never = 1e6;
  const std::string external = "kept awake as soon as external power is there",
                    known = "kept awake as soon as the battery level is known to be above 20 %",
                    cool = "kept awake as soon as the heat is no longer critical",
                    battery = "; released at 20 % battery, now 55 %",
                    goesOn = ", if the work goes on";
  const struct {
    AppMode mode;
    PowerSnapshot power;
    ThermalState heat;
    SignalStrength strength;
    double workSecondsAgo;
    std::string expected;  ///< the rule that applies, then what changes next
  } rows[] = {
      {off, low, hot, strong, 0, "1: nothing until another mode is chosen"},
      {manualKeepAwake, unread, warm, none, never, "2: " + external + "; " + known},
      {watchAgentUI, unread, warm, strong, 0, "2: " + external + goesOn + "; " + known + goesOn},
      {pluggedInUnlimited, unread, warm, none, never,
       "2: " + external + "; " + known + " and work is seen"},
      {manualKeepAwake, low, warm, strong, 0, "3: " + external},
      {watchAgentUI, low, hot, none, 30,
       "3: " + external + " and the heat is no longer critical, if idle grace still lasts"},
      {watchAgentUI, full, hot, presence, never, "5: " + cool + " and work is seen"},
      {manualKeepAwake, full, warm, strong, 0,
       "6: kept awake until another mode is chosen or the heat is critical" + battery},
      {pluggedInUnlimited, mains, warm, strong, 0,
       "7: when external power goes, the battery's level and the agents' work decide"},
      {sleepAfterCurrentWork, mains, warm, weak, 0,
       "8: when the work ends, idle grace holds the machine awake for 90 s"},
      {watchAgentUI, full, warm, none, 30,
       "9: idle grace ends in 60 s unless work is seen" + battery},
      {watchAgentUI, mains, warm, none, 90, "10: kept awake as soon as work is seen"},
      {pluggedInUnlimited, full, warm, none, never,
       "10: kept awake as soon as work is seen or external power is there"}};
  for (const auto& row : rows) {
    OneTick tick{};
    tick.mode = row.mode;
    tick.memory.lastActiveSignalAt = after(tick.seen.at, -row.workSecondsAgo);
    tick.seen.power = row.power;
    tick.seen.thermalState = row.heat;
    tick.seen.strongest.strength = row.strength;
    AgentStateMachine machine(tick.memory);
    tick.decision = machine.evaluate(row.mode, {}, row.power, {}, tick.seen.strongest, false,
                                     row.heat, tick.seen.at);
    tick.rule = machine.lastRule();
    const Explanation explanation = explain(tick);
    std::string text, separator = ": ";
    for (const auto& rule : explanation.rules)
      if (rule.outcome == "applies") text += std::to_string(rule.number);
    for (const auto& next : explanation.next) text += std::exchange(separator, "; ") + next;
    EXPECT_EQ(text, row.expected);
  }
}

TEST(Explanation, TellsWhatAWatchHasInEffectAndWhatIsWrongWithIt) {
  const std::pair<Held, std::string> rows[] = {
      {{}, "sleep allowed"},
      {{.letDisplaySleep = true}, "not to be kept awake, but still the keep-awake tool runs"},
      {{.isToolWanted = true,
        .letDisplaySleep = true,
        .isToolProven = true,
        .isLidClosedEngaged = true},
       "kept awake, display may sleep, lid-closed setting engaged"},
      {{.isToolWanted = true, .letDisplaySleep = false}, "the keep-awake tool is being tried"},
      {{.isToolWanted = true, .isLidClosedEngaged = true},
       "to be kept awake, but the keep-awake tool does not run, the lid-closed setting is engaged"
       " -> see the log for the reason"},
      {{.isLidClosedEngaged = true, .isRestoreOpen = true},
       "not to be kept awake, but the lid-closed setting is engaged: its restore was refused -> "
       "allow the prompt when it comes again, or stop the watch and run: wakelatch restore"}};
  WatchState watch;
  const auto told = [&watch](double age) {
    const auto fault = watchFault(watch, after(watch.at, age));
    return describe(watch, after(watch.at, age)) + (fault ? " -> " + fault->remedy : "");
  };
  for (const auto& [situation, text] : rows) {
    watch.held = situation;
    EXPECT_EQ(told(6), text);
  }
  EXPECT_EQ(told(12).find("stuck: last tick 12 s ago, every 2 s; the keep-awake tool does not"), 0);
  watch.isStopped = true;
  watch.held.prompt = "asks";
  EXPECT_EQ(told(12).find("stopped (Ctrl-Z), it decides nothing; the keep-awake tool does not run, "
                          "the lid-closed setting is engaged; administrator prompt open: asks -> "),
            0);
}

}  // namespace
}  // namespace wakelatch::host
