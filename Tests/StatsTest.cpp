#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>

#include "Host/Folder.h"
#include "Host/StatsCommand.h"
#include "Host/StatsPage.h"
#include "Platform/Files.h"
#include "Tests/TemporaryFolder.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;
using testing::Not;

const Timestamp now = *platform::parseIso8601("2025-03-10T12:00:00Z");
const std::string oddName = "<b>名前 & \"x\"'\n\033[31m\u0085";

/// Two hours protected and one kept awake today, ten minutes by hand the day before.
UsageMetrics someMetrics() {
  UsageMetrics metrics(after(now, -9 * 86400));
  DayBucket& today = metrics.days[UsageMetrics::dayKey(now)];
  today = {7200, 3600, 0, 0, 3, 4, {{"Codex CLI", 1800}, {oddName, 5400}}, {{"Codex CLI", 3}}};
  metrics.days[UsageMetrics::dayKey(after(now, -86400))].manualSeconds = 600;
  metrics.longestProtectedRunSeconds = 5000;
  metrics.longestProtectedRunAgent = oddName;
  metrics.longestProtectedRunDate = "2025-03-10";
  metrics.lastRun = LastRunSummary{"Codex CLI", now, 59.9, 30, 0, false};
  return metrics;
}

TEST(Stats, DurationsAndDaysAreReadable) {
  const std::pair<double, std::string> durations[] = {
      {-5, "0s"},       {std::nan(""), "0s"}, {59.99, "59s"},          {3599, "59m"},
      {3600, "1h 00m"}, {363900, "101h 05m"}, {1e308, "87660000h 00m"}};
  for (const auto& [seconds, text] : durations) EXPECT_EQ(durationText(seconds), text);
  EXPECT_EQ(dayText("2025-03-09", true), "9 Mar 2025");
  for (const char* odd : {"", "2025-13-01", "2025-ab-01", "<>"}) EXPECT_EQ(dayText(odd, true), odd);
}

TEST(Stats, TextShowsTheFiguresAndNothingHarmful) {
  const std::string text = statsText(makeStatsReport(someMetrics(), now, 3), {40, false});
  for (const char* part :
       {"Since 2025-03-01, 1 active day\n", "  Protected       2h 00m  ", "3 of 4 (75%)",
        "1h 23m      2025-03-10  <b>名前", "59s         2025-03-10 ", ", cut short  Codex CLI\n",
        "\n     1h 30m       0  ██████████ <b>名前 &…\n",
        "\n        30m       3  ███        Codex C…\n", "  2025-03-08       0s\n",
        "  2025-03-09      10m  ▒\n", "  2025-03-10   3h 00m  ███████████▓▓▓▓▓\n"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
  const std::string wide = statsText(makeStatsReport(someMetrics(), now, 1), {80, false});
  EXPECT_THAT(wide, HasSubstr("<b>名前 & \"x\"'\uFFFD\uFFFD[31m\uFFFD\n"));
  EXPECT_THAT(wide, Not(HasSubstr("\033")));
  EXPECT_THAT(statsText(makeStatsReport(someMetrics(), now, 1), {80, true}),
              HasSubstr("\033[36m██"));
}

TEST(Stats, CommandReadsAndNeverWrites) {
  const TemporaryHome home;
  const auto run = [](const StatsOptions& options) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    const bool done = runStats(options) == ExitStatus::done;
    const auto out = testing::internal::GetCapturedStdout();
    return std::tuple(done, out, testing::internal::GetCapturedStderr());
  };
  EXPECT_TRUE(std::get<0>(run({})));
  EXPECT_TRUE(fs::is_empty(home.path())) << "not even a folder";

  platform::createFolders(supportFolder());
  platform::writeAtomically(usageFile(), encode(someMetrics()));
  const std::string json = std::get<1>(run({2, true, ""}));
  EXPECT_THAT(json, HasSubstr(R"({"installDate":"2025-03-01T12:00:00Z","totalProtectedSeconds":)"));
  EXPECT_THAT(json, HasSubstr(R"("utilization":0.75,"longestProtectedRun":{"seconds":5000,)"));
  EXPECT_EQ(decode<StatsReport>(json, DateCoding::iso8601).days.size(), 2u);
  EXPECT_TRUE(std::get<0>(run({14, false, home.path() / "page.html"})));
  EXPECT_THAT(platform::readFile(home.path() / "page.html"), HasSubstr("</html>"));
  EXPECT_FALSE(std::get<0>(run({14, false, home.path() / "no/folder"})));

  platform::writeAtomically(usageFile(), R"({"days":{}})");
  const auto message = HasSubstr("usage.json: installDate: missing");
  EXPECT_THAT(run({}), testing::FieldsAre(false, "", message));
  EXPECT_EQ(platform::readFile(usageFile()), R"({"days":{}})");
  EXPECT_EQ(std::distance(fs::directory_iterator(supportFolder()), {}), 1);
}

TEST(Stats, PageEscapesNamesAndLoadsNothing) {
  const std::string page = statsPage(someMetrics(), now, 14);
  EXPECT_THAT(page, HasSubstr("<bdi>&lt;b&gt;名前 &amp; &quot;x&quot;&#39;"));
  EXPECT_THAT(page, HasSubstr("default-src 'none'; style-src 'unsafe-inline'"));
  for (const char* outside : {"http:", "https:", "url(", "@import", "<script", "<b>名前"}) {
    EXPECT_THAT(page, Not(HasSubstr(outside)));
  }
  EXPECT_THAT(statsPage(UsageMetrics(now), now, 14), HasSubstr("Nothing protected yet"));
}

TEST(Stats, PageIsLaidOutInABrowser) {
  if (std::system("command -v chromium >/dev/null") != 0) GTEST_SKIP() << "no chromium here";
  const TemporaryHome home;
  platform::writeAtomically(home.path() / "stats.html", statsPage(someMetrics(), now, 14));
  platform::writeAtomically(home.path() / "probe.html", R"html(<!DOCTYPE html><body>
<iframe src="stats.html" width="1080" height="900"></iframe>
<iframe src="stats.html" width="390" height="800"></iframe><script>
onload = () => { document.body.textContent = 'LAYOUT' + JSON.stringify(Array.from(frames, frame => {
  const page = frame.document, root = page.documentElement;
  const chart = page.querySelector('.days').getBoundingClientRect();
  const bars = [...page.querySelectorAll('.days rect:not(.slot)')];
  const boxes = bars.map(bar => bar.getBoundingClientRect());
  return [
    root.scrollWidth - root.clientWidth,
    frame.performance.getEntriesByType('resource').length,
    page.querySelectorAll('.figures tbody tr').length,
    new Set(bars.map(bar => frame.getComputedStyle(bar).fill)).size,
    boxes.filter(box => box.left < chart.left || box.right > chart.right || box.width < 10 ||
                        box.top < chart.top || box.bottom > chart.bottom).length,
    ...boxes.map(box => box.height)];
})) + 'END' };</script>)html");
  const std::string command =
      "cd ~ && chromium --headless --no-sandbox --disable-gpu --disable-quic --no-first-run "
      "--disable-background-networking --disable-component-update --disable-sync "
      "--allow-file-access-from-files --user-data-dir=profile --dump-dom probe.html >dom 2>errors";
  ASSERT_EQ(std::system(command.c_str()), 0) << platform::readFile(home.path() / "errors");
  const std::string dom = platform::readFile(home.path() / "dom");
  const auto begin = dom.rfind("LAYOUT") + 6;
  const auto layouts =
      decode<std::vector<std::vector<double>>>(dom.substr(begin, dom.rfind("END") - begin));

  ASSERT_EQ(layouts.size(), 2u);
  for (const auto& layout : layouts) {
    // Overflow, requests, rows, colours, bars out of place, and the heights of three bars: ten
    // minutes by hand, two hours protected, one kept awake.
    const double open = layout.back();
    EXPECT_GT(open, 50);
    EXPECT_THAT(layout, testing::ElementsAre(0, 0, 14, 3, 0, testing::Gt(0),
                                             testing::DoubleNear(2 * open, 3), open));
  }
}

}  // namespace
}  // namespace wakelatch::host
