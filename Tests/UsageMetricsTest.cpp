#include "WakelatchCore/UsageMetrics.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <iostream>

#include "Platform/Calendar.h"

namespace wakelatch {
namespace {

using Trigger = KeepAwakeTrigger;
using Reason = SessionCloseReason;
using testing::AllOf, testing::HasSubstr;
using namespace std::chrono_literals;

/// Midnight of a day in the process's zone, on which no zone changes its clocks.
Timestamp midnight() {
  const std::chrono::sys_days day{2025y / 6 / 18};
  return day - platform::localOffset(day);
}

/// One tick; what a test does not say is a protected tick of the agent "a".
struct Tick {
  double seconds = 5;  ///< since the tick before
  Trigger trigger = Trigger::activeSignal;
  SignalStrength strength = SignalStrength::strong;
  LidState lid = LidState::closed;
  std::optional<std::string> agent = "a";
  bool keepAwake = true;
  std::optional<bool> alive = {};
};

/// A store that has seen its first tick, which only starts the clock, at `now`.
struct Store {
  UsageMetrics metrics;
  Timestamp now = midnight() + 12h;
  double grace = 90;

  explicit Store(Timestamp start = midnight() + 12h) : metrics(start), now(start) {
    (*this)({{.seconds = 0}});
  }
  const UsageMetrics& operator()(const std::vector<Tick>& ticks) {
    for (const auto& [seconds, trigger, strength, lid, agent, keepAwake, alive] : ticks) {
      now = after(now, seconds);
      metrics = UsageMetrics::recording(std::move(metrics), keepAwake, trigger, strength, lid,
                                        agent, grace, alive, now);
    }
    return metrics;
  }
  const DayBucket& today() const { return metrics.days.at(UsageMetrics::dayKey(now)); }
};

/// A tick without work, and what is known of the agent's process.
Tick quiet(double seconds, std::optional<bool> alive = {}) {
  return {seconds, Trigger::idleGrace, SignalStrength::presence, LidState::closed, "a", true,
          alive};
}

TEST(UsageAccounting, TimeGoesToTheReasonForBeingAwake) {
  const std::vector<std::pair<Tick, DayBucket>> rows = {
      {{}, {.protectedSeconds = 5, .protectedSecondsByAgent = {{"a", 5}}}},
      {{.seconds = 10, .agent = {}}, {.protectedSeconds = 10}},
      {{.lid = LidState::open}, {.keptAwakeSeconds = 5}},
      {{.lid = LidState::unknown}, {.keptAwakeSeconds = 5}},
      {{.trigger = Trigger::manual}, {.manualSeconds = 5}},
      {{.trigger = Trigger::pluggedInUnlimited}, {.pluggedInUnlimitedSeconds = 5}},
      {{.trigger = Trigger::idleGrace}, {}},
      {{.keepAwake = false}, {}}};
  for (const auto& [tick, expected] : rows) {
    Store store;
    store({tick});
    EXPECT_EQ(store.today(), expected) << rawValue(tick.trigger);
    EXPECT_EQ(store.metrics.sessionProtectedSeconds, expected.protectedSeconds);
    EXPECT_EQ(store.metrics.sessionKeptAwakeSeconds, expected.keptAwakeSeconds);
  }
}

TEST(UsageAccounting, LongestRunIsUninterruptedAndKeepsItsRecordOnATie) {
  Store store;
  EXPECT_EQ(store({{}, {}, {}}).sessionRunSeconds, 15);
  EXPECT_EQ(store({{.lid = LidState::open}}).sessionRunSeconds, 0);
  EXPECT_EQ(store({{.agent = "b"}, {.seconds = 10, .agent = "b"}}).longestProtectedRunAgent, "a");
  store({{.agent = {}}});
  EXPECT_EQ(store.metrics.longestProtectedRunSeconds, 20);
  EXPECT_EQ(store.metrics.longestProtectedRunAgent, std::nullopt);
  EXPECT_EQ(store.metrics.longestProtectedRunDate, UsageMetrics::dayKey(store.now));
  EXPECT_EQ(store.metrics.sessionAgentID, "a") << "the session stays with its first agent";
}

TEST(UsageAccounting, SessionClosesForOneOfThreeReasons) {
  for (const auto& [last, reason] : std::vector<std::pair<Tick, std::optional<Reason>>>{
           {quiet(9.99), {}},
           {quiet(10), Reason::idle},  // exactly the grace period, exactly the longest tick
           {quiet(1, true), {}},
           {quiet(1, false), Reason::vanished},
           {{.alive = false}, {}},  // its signal tells that it works
           {{.seconds = 11}, Reason::interrupted},
           {{.seconds = 0}, Reason::interrupted},
           {{.seconds = -3600}, Reason::interrupted},
       }) {
    Store store;
    store.grace = 10;
    const UsageMetrics open = store({{.lid = LidState::open}, {}});
    const UsageMetrics& closed = store({last});
    EXPECT_EQ(closed.sessionStartedAt.has_value(), !reason);
    if (!reason) continue;

    UsageMetrics expected(open.installDate);
    expected.days = open.days;
    DayBucket& day = expected.days.begin()->second;
    day.totalSessions = day.sessionsSaved = day.sessionsByAgent["a"] = 1;
    expected.longestProtectedRunSeconds = 5;
    expected.longestProtectedRunAgent = "a";
    expected.longestProtectedRunDate = open.days.begin()->first;
    expected.lastTickAt = store.now;
    expected.wakeGapTicksDropped = last.seconds > 10 ? 1 : 0;
    expected.lastCloseReason = reason;
    const Timestamp end = reason == Reason::interrupted ? *open.lastTickAt : store.now;
    expected.lastRun = {"a", end, 5, 5, 5, reason == Reason::idle};
    EXPECT_EQ(closed, expected);
  }
}

TEST(UsageAccounting, OnlyTimeKeptAwakeForAnAgentMakesARun) {
  Store store;
  store({{.trigger = Trigger::manual}, {.seconds = 60}});
  EXPECT_EQ(store.metrics.lastRun, std::nullopt);
  EXPECT_EQ(store.metrics.lastCloseReason, Reason::interrupted);
  EXPECT_EQ(store.today(), (DayBucket{.manualSeconds = 5, .totalSessions = 1}));
  store({{.strength = SignalStrength::presence}, {.lid = LidState::open}});
  EXPECT_EQ(store.metrics.sessionProtectedSeconds, 5) << "booked before the session opened";
  EXPECT_FALSE(store.metrics.sessionQualified);
  EXPECT_EQ(store.metrics.sessionStartedAt, store.now);
}

TEST(UsageAccounting, ACloseCountsOnItsOwnDay) {
  Store idle(after(midnight(), -7)), interrupted(after(midnight(), -7));
  idle.grace = 0;
  idle({{}, quiet(3)});
  interrupted({{}, {.seconds = 3600}});
  EXPECT_EQ(idle.metrics.days["2025-06-17"].totalSessions, 0);
  EXPECT_EQ(idle.metrics.days["2025-06-18"],
            (DayBucket{.sessionsSaved = 1, .totalSessions = 1, .sessionsByAgent = {{"a", 1}}}));
  EXPECT_EQ(interrupted.metrics.days.size(), 1u);
  EXPECT_EQ(interrupted.metrics.days["2025-06-17"].totalSessions, 1);
}

TEST(UsageLogLine, DescribesTheClosedSession) {
  const Timestamp start = platform::parseIso8601("2025-03-01T14:00:00Z").value();
  const auto line = UsageMetrics::runLogLine;
  UsageMetrics session;
  session.sessionStartedAt = start;
  session.lastActiveSignalAt = after(start, 59.9);
  session.sessionProtectedSeconds = 1e300;
  session.sessionKeptAwakeSeconds = 41.99;
  session.sessionAgentID = "cli/\"codex\"";
  EXPECT_EQ(line(session, Reason::vanished, after(start, 100.9), false, 12, LidState::closed),
            "ts=2025-03-01T14:01:40Z agent=\"'codex'\" started=2025-03-01T14:00:00Z worked_s=59 "
            "protected_s=9223372036854775807 kept_awake_s=41 close=vanished process_at_close=gone "
            "session_file_age_s=12 lid=closed");
  session.lastActiveSignalAt = after(start, -5);
  session.sessionProtectedSeconds = std::nan("");
  session.sessionAgentID = "x/" + std::string(65, 'y') + "//";
  EXPECT_THAT(line(session, Reason::idle, start, true, {}, LidState::open),
              AllOf(HasSubstr(" agent=\"" + std::string(64, 'y') + "\" started="),
                    HasSubstr("worked_s=0 protected_s=0 kept_awake_s=41 close=idle "
                              "process_at_close=alive session_file_age_s=- lid=open")));
  session.sessionAgentID = "///";
  EXPECT_THAT(line(session, Reason::idle, start, {}, {}, LidState::open), HasSubstr("agent=\"-\""));
}

// In a process of its own, where nothing has asked for the zone before.
TEST(UsageStatisticsDeathTest, DaysAreThoseOfTheProcessesZone) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto printDays = [] {
    ::setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    const Timestamp end = platform::parseIso8601("2024-12-31T23:30:00Z").value();
    UsageMetrics metrics;
    metrics.days["2024-12-31"].totalSessions = 7;
    for (const auto& day : metrics.recentDays(3, end))
      std::cerr << day.dayKey << '=' << day.bucket.totalSessions << ' ';
    std::exit(0);
  };
  EXPECT_EXIT(printDays(), testing::ExitedWithCode(0), "2024-12-30=0 2024-12-31=7 2025-01-01=0 ");
}

TEST(UsageJson, ReadsWhatItWritesInOrder) {
  const std::string text =
      R"({"days":{"2025-03-01":{"protectedSeconds":0.1,"keptAwakeSeconds":2,"manualSeconds":3,)"
      R"("pluggedInUnlimitedSeconds":4,"sessionsSaved":5,"totalSessions":6,)"
      R"("protectedSecondsByAgent":{"a":0.1},"sessionsByAgent":{"a":5}}},"installDate":762530709.25,)"
      R"("longestProtectedRunSeconds":7,"longestProtectedRunAgent":"a",)"
      R"("longestProtectedRunDate":"2025-03-01","sessionStartedAt":762530710,)"
      R"("sessionQualified":true,"sessionAgentID":"b","sessionRunSeconds":8,"lastTickAt":9,)"
      R"("lastActiveSignalAt":10,"wakeGapTicksDropped":11,"lastRun":{"agentDisplayName":"c",)"
      R"("endedAt":12,"workedSeconds":13,"protectedSeconds":14,"keptAwakeSeconds":15,)"
      R"("finishedNormally":true},"lastCloseReason":"vanished","sessionProtectedSeconds":16,)"
      R"("sessionKeptAwakeSeconds":17})";
  EXPECT_EQ(encode(decode<UsageMetrics>(text)), text);
  EXPECT_EQ(decode<UsageMetrics>(R"({"installDate":0,"lastRun":null})"),
            UsageMetrics(after({}, 978307200)));
}

}  // namespace
}  // namespace wakelatch
