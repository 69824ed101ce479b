#include "Host/StatsPage.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Host/Page.h"
#include "Host/StatsChart.h"
#include "Host/StatsReport.h"
#include "Host/Terminal.h"
#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

constexpr std::string_view ownStyle =
    R"html(.days { display: block; width: calc(100% - 2.5rem); height: 250px; margin-left: 2.5rem;
  overflow: visible; }
.days line { stroke: var(--line); } .days text { fill: var(--soft); font-size: 12px; }
.days .slot { fill: transparent; } .days g:hover .slot { fill: var(--line); fill-opacity: .5; }
.agents { margin-top: .5rem; }
.agents th:first-child { width: 100%; white-space: normal; overflow-wrap: anywhere;
  line-height: 1.35; }
.agents td, .agents th + th { padding-left: 2rem; }
.agents svg { display: block; width: 100%; height: 10px; margin-top: .375rem; }
@media (max-width: 40rem) { .agents td, .agents th + th { padding-left: .75rem; } }
)html";

std::string headerOf(const StatsReport& report) {
  const std::string since = dayAndYearText(UsageMetrics::dayKey(report.installDate));
  std::string html;
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
  return html;
}

std::string tile(std::string_view label, const std::string& value, const std::string& note) {
  return "<div><dt>" + std::string(label) + "</dt><dd><b>" + value + "</b><span class=\"note\">" +
         note + "</span></dd></div>\n";
}

std::string highlightsOf(const StatsReport& report) {
  std::string share = "no session has ended yet";
  if (report.utilization) {
    share = std::to_string(std::lround(*report.utilization * 100)) + "% of all that ended, on " +
            counted(report.activeDays, "active day");
  }
  std::string html = tile(
      "Sessions saved",
      std::to_string(report.totalSessionsSaved) + " of " + std::to_string(report.totalWorkSessions),
      share);
  if (const auto& run = report.longestProtectedRun) {
    std::string note = run->agentID ? name(*run->agentID) : "unknown agent";
    if (run->dayKey) note += ", " + escaped(dayAndYearText(*run->dayKey));
    html += tile("Longest protected run", durationText(run->seconds), note);
  }
  if (const auto& run = report.lastRun) {
    html += tile("Last run", durationText(run->workedSeconds),
                 (run->agentDisplayName ? name(*run->agentDisplayName) : "unknown agent") + ", " +
                     std::string(report.lastRunEnding) + " " + localDateAndTime(run->endedAt));
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
  return "<section>\n<h2>Last " + counted(std::ssize(report.days), "day") +
         "</h2>\n<ul class=\"legend\">\n" + legend + "</ul>\n" + dayChart(report.days) +
         "</section>\n";
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
  std::vector<std::string_view> titles{"Day"};
  for (const AwakeKind& kind : awakeKinds) titles.push_back(kind.name);
  titles.emplace_back("Sessions saved");
  std::vector<std::vector<std::string>> rows;
  for (auto day = report.days.rbegin(); day != report.days.rend(); ++day) {
    std::vector<std::string> row{report.days.size() > 300 ? dayAndYearText(day->dayKey)
                                                          : dayText(day->dayKey)};
    for (const AwakeKind& kind : awakeKinds) {
      row.push_back(durationText(day->bucket.*kind.seconds));
    }
    row.push_back(std::to_string(day->bucket.sessionsSaved) + " of " +
                  std::to_string(day->bucket.totalSessions));
    rows.push_back(std::move(row));
  }
  return tableSection("Day by day", titles, rows);
}

}  // namespace

std::string statsPage(const UsageMetrics& metrics, Timestamp now, int days) {
  const StatsReport report = makeStatsReport(metrics, now, std::max(days, 1));
  std::string content;
  if (!metrics.days.empty()) {
    content += highlightsOf(report);
    content += daysSectionOf(report);
    content += agentsSectionOf(report);
    content += tableSectionOf(report);
  }
  return page("Wakelatch statistics", ownStyle, headerOf(report), content, "wakelatch stats", now);
}

}  // namespace wakelatch::host
