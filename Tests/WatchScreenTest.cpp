#include "Host/WatchScreen.h"

#include <gmock/gmock.h>

#include "Host/Terminal.h"
#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

using testing::HasSubstr, testing::Not, testing::SizeIs;
using Lines = std::vector<std::string>;

const Timestamp now = after(*platform::parseIso8601("2025-03-01T14:05:09Z"), 0.1234);
const std::string hostile = "名前\033[2J\n\u202E\xFF";

/// Text in a window, processes at work, session files that are not believed; something is held.
StatusReport someReport() {
  Observation seen;
  seen.at = now;
  seen.agents = {{"Codex CLI", {"codex-cli"}}, {"OpenCode", {"opencode"}}};
  const ActivitySignal text{SignalStrength::presence, hostile, "idle", "Ask"},
      work{SignalStrength::strong, "Codex CLI", "busy", {}, 2},
      files{SignalStrength::strong, "OpenCode", "fresh"};
  seen.evidence = {{{work, 31.5, 8, true}}, {{text}, {}}, {{}, {files}}, {work, text}};
  seen.power = {false, 55, "55%"};
  OneTick tick;
  tick.seen = seen;
  tick.decision.status = GuardStatus::keepingAwake;
  StatusReport report = makeStatusReport(tick);
  report.watch.emplace();
  report.watch->held.isToolWanted = report.watch->held.isToolProven = true;
  report.watch->held.letDisplaySleep = true;
  report.watch->held.since = after(now, -3900);
  return report;
}

TEST(WatchScreen, FitsAndKeepsWhatMatters) {
  StatusReport report = someReport();
  report.watch->held.prompt = "engaging";
  report.watch->held.releaseDueAt = after(now, 24.5);
  const std::deque<std::string> notices{"1 old", "2 " + hostile, "3", "4", "5 new"};
  const WatchTick tick{now, report, after(now, 3900), 7260};
  const struct {
    int columns, rows;
    std::size_t lines;
    Lines shown, hidden;
  } table[] = {
      {80,
       24,
       20,
       {"Keeping Awake  " + localTime(now) + "\n", "Held     since " + localTime(after(now, -3900)),
        " (1h 05m): kept awake, display may sleep\n", "Prompt   open: engaging\n",
        "idle grace ends in 1:05:00, at ", "keep-awake ends in 0:25, at ",
        "Agents   working       Codex CLI\n", "CPU 31.5 %",
        "\n         present       名前\uFFFD[2J\uFFFD\uFFFD\uFFFD\n", "not believed  OpenCode\n",
        "55%, Battery; lid unknown; heat nominal\n", "kept awake 2h 01m", "\n5 new\n"},
       {}},
      {80, 12, 11, {"OpenCode", "Today", "kept awake 2h"}, {"CPU", "Mode", "5 new"}},
      {80, 15, 14, {"Mode", "\n5 new\n", "4\n"}, {"CPU", "1 old", "2 "}},
      {80, 7, 6, {"Codex CLI", "ends in 0:25"}, {"OpenCode", "Why"}},
      {80, 3, 2, {"Awake  " + localTime(now) + "  Held     since ", "\nPrompt   open: eng"}, {}},
      {20, 24, 20, {"\nAgents   working    \n", "\nPrompt   open: engag\n", "\n5 new\n"}, {}},
      {1, 24, 20, {"K\nW\nH\nP\nU\nU\nA\n"}, {}},
      {80, 1, 0, {}, {}},
  };
  for (const auto& row : table) {
    std::string all;
    const Lines lines = watchScreen(tick, now, notices, {row.columns, row.rows}),
                colored = watchScreen(tick, now, notices, {row.columns, row.rows, true});
    for (const std::string& line : lines) {
      EXPECT_LE(columnsOf(line), row.columns);
      all += line + '\n';
    }
    EXPECT_THAT(lines, SizeIs(row.lines)) << all;
    for (const std::string& part : row.shown) EXPECT_THAT(all, HasSubstr(part)) << row.rows;
    for (const std::string& part : row.hidden) EXPECT_THAT(all, Not(HasSubstr(part))) << row.rows;
    EXPECT_THAT(all, Not(HasSubstr("\033")));
    if (row.lines > 0) {
      const std::string word(firstColumns("Keeping Awake", row.columns));
      EXPECT_THAT(colored[0], HasSubstr("\033[32m" + word + "\033[0m"));
    }
  }
  EXPECT_EQ(firstColumns("a名前b", 4), "a名") << "a wide character is not cut in two";
  EXPECT_EQ(localTime(after(now, 1e300)), "--:--:--");
  EXPECT_EQ(platform::iso8601Milliseconds(after({}, -0.25)), "1969-12-31T23:59:59.750Z");
}

}  // namespace
}  // namespace wakelatch::host
