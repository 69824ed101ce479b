#include <gmock/gmock.h>

#include <cmath>

#include "Host/Commands.h"
#include "Host/StatsPage.h"
#include "Host/StatsText.h"
#include "Host/SupportDirectory.h"
#include "Host/TimeText.h"
#include "Platform/Calendar.h"
#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr, testing::Not;

/// Noon of a day in the zone of whoever runs this. Not asked for before `main`: another test sets
/// the zone, which the C library reads once.
Timestamp noon() {
  const Timestamp ofUTC = *platform::parseIso8601("2025-03-10T12:00:00Z");
  return after(ofUTC, -static_cast<double>(platform::localOffset(ofUTC).count()));
}
const std::string oddName = "<b>名前 & \"x\"'\n\033[31m\u0085";

/// Two hours protected and one kept awake today, ten minutes by hand the day before.
UsageMetrics someMetrics() {
  UsageMetrics metrics(after(noon(), -9 * 86400));
  DayBucket& today = metrics.days[UsageMetrics::dayKey(noon())];
  today = {7200, 3600, 0, 0, 3, 4, {{"Codex CLI", 1800}, {oddName, 5400}}, {{"Codex CLI", 3}}};
  metrics.days[UsageMetrics::dayKey(after(noon(), -86400))].manualSeconds = 600;
  metrics.longestProtectedRunSeconds = 5000;
  metrics.longestProtectedRunAgent = oddName;
  metrics.longestProtectedRunDate = "2025-03-10";
  metrics.lastRun = LastRunSummary{"Codex CLI", noon(), 59.9, 30, 0, false};
  return metrics;
}

TEST(Stats, DurationsAndDaysAreReadable) {
  const std::pair<double, std::string> durations[] = {
      {-5, "0s"},       {std::nan(""), "0s"}, {59.99, "59s"},          {3599, "59m"},
      {3600, "1h 00m"}, {363900, "101h 05m"}, {1e308, "87660000h 00m"}};
  for (const auto& [seconds, text] : durations) EXPECT_EQ(durationText(seconds), text);
  EXPECT_EQ(dayAndYearText("2025-03-09"), "9 Mar 2025");
  for (const char* odd : {"", "2025-13-01", "2025-ab-01", "<>"})
    EXPECT_EQ(dayAndYearText(odd), odd);
}

TEST(Stats, TextShowsTheFiguresAndNothingHarmful) {
  const std::string text = statsText(makeStatsReport(someMetrics(), noon(), 3), {.columns = 40});
  for (const char* part :
       {"Since 2025-03-01, 1 active day\n", "  Protected       2h 00m  ", "3 of 4 (75%)",
        "1h 23m      2025-03-10  <b>名前", "59s         2025-03-10 ", ", ended  Codex CLI\n",
        "\n     1h 30m       0  ██████████ <b>名前 &…\n",
        "\n        30m       3  ███        Codex C…\n", "  2025-03-08       0s\n",
        "  2025-03-09      10m  ▒\n", "  2025-03-10   3h 00m  ███████████▓▓▓▓▓\n"})
    EXPECT_THAT(text, HasSubstr(part));
  const std::string wide = statsText(makeStatsReport(someMetrics(), noon(), 1), {});
  EXPECT_THAT(wide, HasSubstr("<b>名前 & \"x\"'\uFFFD\uFFFD[31m\uFFFD\n"));
  EXPECT_THAT(wide, Not(HasSubstr("\033")));
  EXPECT_THAT(statsText(makeStatsReport(someMetrics(), noon(), 1), {.hasColor = true}),
              HasSubstr("\033[36m██"));
}

TEST(Stats, OnlyARunKnownToBeInterruptedIsCutShort) {
  using enum SessionCloseReason;
  const struct {
    bool finished;
    std::optional<SessionCloseReason> newest;
    std::int64_t sessionsThatDay, sessionsLater;
    std::string text;
  } rows[] = {{true, interrupted, 1, 0, "finished"},   {false, vanished, 1, 0, "ended"},
              {false, interrupted, 1, 0, "cut short"}, {false, interrupted, 2, 0, "ended"},
              {false, interrupted, 1, 1, "ended"},     {false, {}, 1, 0, "ended"}};
  for (const auto& row : rows) {
    UsageMetrics metrics(noon());
    metrics.lastRun = LastRunSummary{{}, noon(), 60, 0, 60, row.finished};
    metrics.lastCloseReason = row.newest;
    metrics.days["2025-03-09"].totalSessions = 5;
    metrics.days["2025-03-10"].totalSessions = row.sessionsThatDay;
    metrics.days["2025-03-11"].totalSessions = row.sessionsLater;
    EXPECT_EQ(endingText(metrics), row.text);
  }
}

TEST(Stats, CommandReadsAndNeverWrites) {
  const TemporaryHome home;
  const auto run = [](const StatsOptions& options) {
    Tools tools({});
    testing::internal::CaptureStdout();
    try {
      runCommand(options, tools);
    } catch (const std::exception&) {
      return testing::internal::GetCapturedStdout() + "failed";
    }
    return testing::internal::GetCapturedStdout();
  };
  EXPECT_THAT(run({}), HasSubstr("Nothing is recorded yet"));
  EXPECT_TRUE(fs::is_empty(home.path())) << "not even a directory";

  platform::createDirectories(supportDirectory());
  platform::writeAtomically(usageFile(), encode(someMetrics()));
  const std::string json = run({.days = 2, .json = true, .htmlFile = {}});
  EXPECT_THAT(json, HasSubstr("{\"installDate\":\"" + platform::iso8601(after(noon(), -9 * 86400)) +
                              "\",\"totalProtectedSeconds\":"));
  EXPECT_THAT(json, HasSubstr(R"("utilization":0.75,"longestProtectedRun":{"seconds":5000,)"));
  EXPECT_EQ(decode<StatsReport>(json, DateCoding::iso8601).days.size(), 2u);
  run({.htmlFile = home.path() / "page.html"});
  EXPECT_THAT(platform::readFile(home.path() / "page.html"), HasSubstr("</html>"));
  EXPECT_EQ(run({.htmlFile = home.path() / "no/directory"}), "failed");

  platform::writeAtomically(usageFile(), R"({"days":{}})");
  EXPECT_EQ(run({}), "failed");
  EXPECT_EQ(platform::readFile(usageFile()), R"({"days":{}})");
  EXPECT_EQ(std::distance(fs::directory_iterator(supportDirectory()), {}), 1);
}

TEST(Stats, PageDrawsToScaleEscapesNamesAndLoadsNothing) {
  const std::string page = statsPage(someMetrics(), noon(), 14);
  for (const char* part :
       {R"(y="208.33" height="10.67")", R"(y="80.00" height="139.00")",
        R"(y="10.00" height="69.00")", "<bdi>&lt;b&gt;名前 &amp; &quot;x&quot;&#39;",
        "default-src 'none'; style-src 'unsafe-inline'"})
    EXPECT_THAT(page, HasSubstr(part));
  for (const char* outside : {"http:", "https:", "url(", "@import", "<script", "<b>名前"})
    EXPECT_THAT(page, Not(HasSubstr(outside)));
  UsageMetrics metrics(noon());
  EXPECT_THAT(statsPage(metrics, noon(), 14), HasSubstr("Nothing kept awake yet"));
  metrics.days["2025-03-10"] = {0, 7200, 0, 600, 0, 1, {}, {}};
  EXPECT_THAT(
      statsPage(metrics, noon(), 14),
      HasSubstr("<h1>2h 10m <small>kept awake</small></h1>\n<p>Since 10 Mar 2025: <b>2h 00m"
                "</b> an agent at work, lid open; <b>10m</b> unlimited on external power. "));
}

}  // namespace
}  // namespace wakelatch::host
