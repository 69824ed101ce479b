#include "Host/StatsPage.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Host/StatsChart.h"
#include "Host/StatsReport.h"

namespace wakelatch::host {
namespace {

constexpr std::string_view head = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta http-equiv="Content-Security-Policy" content="default-src 'none'; style-src 'unsafe-inline'">
<meta name="viewport" content="width=device-width, initial-scale=1">
<meta name="color-scheme" content="light dark">
<title>Wakelatch statistics</title>
<style>
:root {
  --page: #f5f3ee; --card: #fff; --line: #e3dfd6; --text: #1d2528; --soft: #566268;
  --kind0: #12595e; --kind1: #2f97b8; --kind2: #c9781a; --kind3: #8a7bb5;
}
@media (prefers-color-scheme: dark) {
  :root {
    --page: #12171a; --card: #1b2124; --line: #2e373b; --text: #e9eef0; --soft: #9fadb3;
    --kind0: #4fd1b5; --kind1: #5a9fd4; --kind2: #e0a24a; --kind3: #a191cf;
  }
}
* { box-sizing: border-box; margin: 0; }
body {
  background: var(--page); color: var(--text); -webkit-text-size-adjust: 100%;
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", sans-serif;
}
main { max-width: 62rem; margin: 0 auto;
  padding: clamp(1.25rem, 5vw, 3.5rem) clamp(1rem, 4vw, 2rem); }
header { margin-bottom: 2rem; }
.brand { color: var(--soft); font-size: .9375rem; display: flex; align-items: center; gap: .5rem; }
.brand svg { width: 1.25rem; height: 1.25rem; }
h1 { font-size: clamp(2.25rem, 8vw, 4rem); line-height: 1.1; letter-spacing: -.03em;
  margin: 1.25rem 0 .5rem; }
h1.quiet { font-size: clamp(1.75rem, 5vw, 2.25rem); }
h1 small { font-size: .45em; font-weight: 500; letter-spacing: -.01em; color: var(--soft); }
header p + h1 + p { max-width: 40rem; font-size: 1.0625rem; color: var(--soft); }
header b { color: var(--text); font-weight: 600; white-space: nowrap; }
section, dl { background: var(--card); border: 1px solid var(--line); border-radius: 14px;
  margin-top: 1rem; }
section { padding: clamp(1rem, 3.5vw, 1.75rem); }
h2 { font-size: 1.125rem; letter-spacing: -.01em; }
dl { display: grid; grid-template-columns: repeat(auto-fit, minmax(min(100%, 14rem), 1fr)); gap: 1px;
  background: var(--line); overflow: hidden; }
dl div { background: var(--card); padding: 1.125rem clamp(1rem, 3.5vw, 1.75rem); min-width: 0; }
dt, .note { color: var(--soft); font-size: .875rem; }
dd { overflow-wrap: anywhere; }
dd b { display: block; font-size: 1.625rem; line-height: 1.3; letter-spacing: -.02em;
  font-weight: 650; }
.legend { display: flex; flex-wrap: wrap; gap: .375rem 1.5rem; list-style: none; padding: 0;
  margin: .75rem 0 1.25rem; font-size: .875rem; color: var(--soft); }
.legend b { color: var(--text); font-weight: 600; }
.legend i { display: inline-block; width: .75rem; height: .75rem; border-radius: 3px;
  margin-right: .5rem; }
.kind0 { fill: var(--kind0); background: var(--kind0); }
.kind1 { fill: var(--kind1); background: var(--kind1); }
.kind2 { fill: var(--kind2); background: var(--kind2); }
.kind3 { fill: var(--kind3); background: var(--kind3); }
.days { display: block; width: calc(100% - 2.5rem); height: 250px; margin-left: 2.5rem;
  overflow: visible; }
.days line { stroke: var(--line); } .days text { fill: var(--soft); font-size: 12px; }
.days .slot { fill: transparent; } .days g:hover .slot { fill: var(--line); fill-opacity: .5; }
table { width: 100%; border-collapse: collapse; font-variant-numeric: tabular-nums;
  font-size: .9375rem; }
th, td { text-align: right; padding: .5rem 0 .5rem .75rem; border-top: 1px solid var(--line);
  white-space: nowrap; }
thead th { border-top: 0; color: var(--soft); font-size: .8125rem; font-weight: 500;
  vertical-align: bottom; }
th:first-child { text-align: left; padding-left: 0; font-weight: 500; }
.zero { color: var(--soft); }
.agents { margin-top: .5rem; }
.agents th:first-child { width: 100%; white-space: normal; overflow-wrap: anywhere;
  line-height: 1.35; }
.agents td, .agents th + th { padding-left: 2rem; }
.agents svg { display: block; width: 100%; height: 10px; margin-top: .375rem; }
.track { fill: var(--line); fill-opacity: .6; }
.figures { overflow-x: auto; margin-top: .5rem; }
.figures table { table-layout: fixed; }
footer { color: var(--soft); font-size: .8125rem; margin-top: 1.5rem; }
@media (max-width: 40rem) {
  .minor { display: none; }
  h1 small { display: block; margin-top: .25rem; line-height: 1.3; }
  thead th { white-space: normal; }
  .figures table { table-layout: auto; font-size: .75rem; }
  .figures thead th { font-size: .75rem; }
  .figures td, .figures th:not(:first-child) { padding-left: .25rem; }
  .agents td, .agents th + th { padding-left: .75rem; }
}
</style>
</head>
<body>
<main>
)html";

constexpr std::string_view brand = R"html(<p class="brand">
<svg viewBox="0 0 20 20" aria-hidden="true">
<path d="M10 1a9 9 0 1 0 9 9 7 7 0 0 1-9-9z" class="kind0"/></svg>
Wakelatch</p>
)html";

std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      case '\'':
        result += "&#39;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

/// A name from outside; its writing direction stays its own.
std::string name(const std::string& text) {
  return "<bdi>" + escaped(text) + "</bdi>";
}

std::string daysText(std::size_t days) {
  return std::to_string(days) + (days == 1 ? " day" : " days");
}

std::string headerOf(const StatsReport& report) {
  const std::string since = dayText(UsageMetrics::dayKey(report.installDate), true);
  std::string html = "<header>\n" + std::string(brand);
  if (report.totalProtectedSeconds > 0) {
    html += "<h1>" + durationText(report.totalProtectedSeconds) +
            " <small>of agent work protected</small></h1>\n<p>Work that went on with the lid "
            "closed, since " +
            since + ". Another <b>" + durationText(report.totalKeptAwakeSeconds) +
            "</b> went on with the lid open.</p>\n";
  } else if (const double sum = awakeSeconds(report); sum > 0) {
    html += "<h1>" + durationText(sum) + " <small>kept awake</small></h1>\n<p>Since " + since;
    std::string_view before = ": ";
    for (const AwakeKind& kind : awakeKinds) {
      if (!(report.*kind.total > 0)) continue;
      html += std::string(std::exchange(before, "; ")) + "<b>" + durationText(report.*kind.total) +
              "</b> " + std::string(kind.meaning);
    }
    html += ". No agent has been at work with the lid closed yet.</p>\n";
  } else {
    html += "<h1 class=\"quiet\">Nothing kept awake yet</h1>\n<p>Statistics began on " + since +
            ". They grow while <b>wakelatch watch</b> runs and keeps this machine awake.</p>\n";
  }
  return html + "</header>\n";
}

std::string tile(std::string_view label, const std::string& value, const std::string& note) {
  return "<div><dt>" + std::string(label) + "</dt><dd><b>" + value + "</b><span class=\"note\">" +
         note + "</span></dd></div>\n";
}

std::string highlightsOf(const StatsReport& report) {
  std::string share = "no session has ended yet";
  if (report.utilization) {
    share = std::to_string(std::lround(*report.utilization * 100)) + "% of all that ended, on " +
            std::to_string(report.activeDays) +
            (report.activeDays == 1 ? " active day" : " active days");
  }
  std::string html = tile(
      "Sessions saved",
      std::to_string(report.totalSessionsSaved) + " of " + std::to_string(report.totalWorkSessions),
      share);
  if (const auto& run = report.longestProtectedRun) {
    std::string note = run->agentID ? name(*run->agentID) : "unknown agent";
    if (run->dayKey) note += ", " + escaped(dayText(*run->dayKey, true));
    html += tile("Longest protected run", durationText(run->seconds), note);
  }
  if (const auto& run = report.lastRun) {
    html += tile("Last run", durationText(run->workedSeconds),
                 (run->agentDisplayName ? name(*run->agentDisplayName) : "unknown agent") + ", " +
                     std::string(report.lastRunEnding) + " " + localTimeText(run->endedAt));
  }
  return "<dl>\n" + html + "</dl>\n";
}

std::string daysSectionOf(const StatsReport& report) {
  std::string legend;
  for (std::size_t k = 0; k < awakeKinds.size(); ++k) {
    double sum = 0;
    for (const auto& day : report.days) sum += sane(day.bucket.*awakeKinds[k].seconds);
    legend += "<li title=\"" + std::string(awakeKinds[k].meaning) + "\"><i class=\"kind" +
              std::to_string(k) + "\"></i>" + std::string(awakeKinds[k].name) + " <b>" +
              durationText(sum) + "</b></li>\n";
  }
  return "<section>\n<h2>Last " + daysText(report.days.size()) + "</h2>\n<ul class=\"legend\">\n" +
         legend + "</ul>\n" + dayChart(report.days) + "</section>\n";
}

std::string agentsSectionOf(const StatsReport& report) {
  if (report.agents.empty()) return {};
  const double longest = sane(report.agents.front().protectedSeconds);
  std::string rows;
  for (const auto& agent : report.agents) {
    const double share = longest > 0 ? sane(agent.protectedSeconds) / longest * 100 : 0;
    rows +=
        "<tr><th scope=\"row\">" + name(agent.agentID) +
        "<svg aria-hidden=\"true\"><rect class=\"track\" width=\"100%\" height=\"10\" rx=\"4\"/>"
        "<rect class=\"kind0\" width=\"" +
        percent(share) + "\" height=\"10\" rx=\"4\"/></svg></th><td>" +
        durationText(agent.protectedSeconds) + "</td><td>" + std::to_string(agent.sessionsSaved) +
        "</td></tr>\n";
  }
  return "<section>\n<h2 id=\"agents\">By agent</h2>\n"
         "<table class=\"agents\" aria-labelledby=\"agents\">\n<thead><tr>"
         "<th scope=\"col\">Agent</th><th scope=\"col\">Protected</th>"
         "<th scope=\"col\">Sessions saved</th></tr></thead>\n<tbody>\n" +
         rows + "</tbody>\n</table>\n</section>\n";
}

std::string tableSectionOf(const StatsReport& report) {
  std::string html =
      "<section>\n<h2 id=\"table\">Day by day</h2>\n"
      "<div class=\"figures\" role=\"region\" aria-labelledby=\"table\" tabindex=\"0\">\n"
      "<table aria-labelledby=\"table\">\n<thead><tr><th scope=\"col\">Day</th>";
  for (const AwakeKind& kind : awakeKinds) {
    html += "<th scope=\"col\">" + std::string(kind.name) + "</th>";
  }
  html += "<th scope=\"col\">Sessions saved</th></tr></thead>\n<tbody>\n";
  for (auto day = report.days.rbegin(); day != report.days.rend(); ++day) {
    html += "<tr><th scope=\"row\">" + dayText(day->dayKey, report.days.size() > 300) + "</th>";
    for (const AwakeKind& kind : awakeKinds) {
      const double seconds = day->bucket.*kind.seconds;
      html += (seconds > 0 ? "<td>" : "<td class=\"zero\">") + durationText(seconds) + "</td>";
    }
    html += "<td>" + std::to_string(day->bucket.sessionsSaved) + " of " +
            std::to_string(day->bucket.totalSessions) + "</td></tr>\n";
  }
  return html + "</tbody>\n</table>\n</div>\n</section>\n";
}

}  // namespace

std::string statsPage(const UsageMetrics& metrics, Timestamp now, int days) {
  const StatsReport report = makeStatsReport(metrics, now, std::max(days, 1));
  std::string html(head);
  html += headerOf(report);
  if (!metrics.days.empty()) {
    html += highlightsOf(report);
    html += daysSectionOf(report);
    html += agentsSectionOf(report);
    html += tableSectionOf(report);
  }
  html += "<footer>Made " + localTimeText(now) +
          " by wakelatch stats. This page loads nothing and runs no script.</footer>\n";
  html += "</main>\n</body>\n</html>\n";
  return html;
}

}  // namespace wakelatch::host
