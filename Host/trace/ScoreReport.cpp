#include "Host/trace/ScoreReport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>
#include <utility>

#include "Host/Page.h"
#include "Host/Terminal.h"
#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

/// Tenths below 10 s, whole seconds above.
std::string secondsShown(double seconds) {
  const double shown = tenths(seconds);
  char text[32];
  std::snprintf(text, sizeof text, shown > 0 && shown < 10 ? "%.1f" : "%.0f", shown);
  return text;
}

std::string shown(const Measure& measure, const Figures& figures) {
  const double value = measure.of(figures);
  return measure.isCount ? std::to_string(std::llround(value)) : secondsShown(value);
}

constexpr std::string_view legend =
    "In seconds. Not held: in work, after its first 10 s. Sleeps: asked for in work.\n"
    "Seen after, at worst: the delay until work was held, its median and its maximum.\n"
    "Beyond grace: still held after work. Idle held: for no work at all.\n"
    "Misnamed: held in work, in the name of an agent that did none.\n";

struct Row {
  std::string label;
  const Figures* figures;
};

/// Agents by name, then the machine, then what people do by hand.
std::vector<Row> rowsOf(const Score& score) {
  std::vector<Row> rows;
  for (const auto& [agent, figures] : score.agents) {
    rows.push_back({agent.empty() ? "no agent named" : agent, &figures});
  }
  rows.push_back({"In all", &score.all});
  rows.push_back({"Awake while a process exists", &score.whileProcess});
  rows.push_back({"Awake while a CPU is busy", &score.whileLoad});
  return rows;
}

/// "Beyond grace by evidence: process 10, session files 15"; empty when there is nothing.
std::string evidenceText(const Figures& figures) {
  std::string text;
  for (const auto& [raw, seconds] : figures.beyondGraceByEvidence) {
    const auto kind = fromRawValue<EvidenceKind>(raw);
    text += (text.empty() ? "Beyond grace by evidence: " : ", ") +
            std::string(kind ? displayName(*kind) : raw) + " " + secondsShown(seconds);
  }
  return text;
}

std::string headerOf(const Figures& all) {
  if (!(all.workSeconds > 0)) return "<h1 class=\"quiet\">No work to measure decisions by</h1>\n";
  // Cut, not rounded: 100 % is all of it.
  const double share = std::floor((1 - all.notHeldSeconds / all.workSeconds) * 10000) / 100;
  return "<h1>" + percent(std::max(share, 0.0)) +
         " <small>of agent work kept awake</small></h1>\n<p><b>" + durationText(all.workSeconds) +
         "</b> of work, sleep asked for in it <b>" + std::to_string(all.sleepsAskedInWork) +
         "</b> times, and <b>" + durationText(all.beyondGraceSeconds + all.idleHeldSeconds) +
         "</b> kept awake for nothing.</p>\n";
}

std::string tableSectionOf(const Score& score) {
  std::vector<std::string_view> titles{"Agent"};
  for (const Measure& measure : measures) titles.push_back(measure.title);
  std::vector<std::vector<std::string>> rows;
  for (const Row& row : rowsOf(score)) {
    rows.push_back({name(row.label)});
    for (const Measure& measure : measures) rows.back().push_back(shown(measure, *row.figures));
  }
  return tableSection(
      "Figures", titles, rows,
      "<p class=\"note\">" + std::string(legend) + "<br>" + evidenceText(score.all) + "</p>\n");
}

std::string traceSectionOf(const ScoredTrace& trace) {
  static constexpr std::pair<std::string_view, std::string_view> kinds[] = {
      {"kind0", "working"}, {"kind2", "waiting for the user"}, {"track", "idle"},
      {"kind1", "held"},    {"sleep", "sleep asked for"},      {"kind3", "evidence"}};
  std::string html = "<section>\n<h2>" + name(trace.title) + "</h2>\n<ul class=\"legend\">\n";
  for (const auto& [style, meaning] : kinds) {
    html += "<li><i class=\"" + std::string(style) + "\"></i>" + std::string(meaning) + "</li>\n";
  }
  html += "</ul>\n";
  if (!trace.samples.empty()) {
    html += "<p class=\"note\">From " + localDateAndTime(trace.samples.front().at) + ", " +
            std::to_string(trace.samples.size()) + " decisions</p>\n";
  }
  return html + stripChart(trace) + "</section>\n";
}

constexpr std::string_view ownStyle = R"html(.figures table { table-layout: auto; }
.figures thead th { white-space: normal; } .track { background: var(--line); }
.figures + .note { margin-top: 1rem; }
)html";

}  // namespace

std::string scoreText(const Score& score) {
  const std::vector<Row> rows = rowsOf(score);
  int labelWidth = 0;
  for (const Row& row : rows) labelWidth = std::max(labelWidth, columnsOf(printable(row.label)));
  std::string result = padded("", labelWidth);
  for (const Measure& measure : measures) result += "  " + std::string(measure.title);
  result += '\n';
  for (const Row& row : rows) {
    result += padded(printable(row.label), labelWidth);
    for (const Measure& measure : measures) {
      result += "  " + paddedLeft(shown(measure, *row.figures), columnsOf(measure.title));
    }
    result += '\n';
  }
  const std::string evidence = evidenceText(score.all);
  return result + (evidence.empty() ? "" : evidence + "\n") + std::string(legend);
}

std::string scorePage(const std::vector<ScoredTrace>& traces, const Score& score, Timestamp now) {
  std::string content = tableSectionOf(score);
  for (const ScoredTrace& trace : traces) content += traceSectionOf(trace);
  return page("Wakelatch score", std::string(ownStyle) + std::string(chartStyle),
              headerOf(score.all), content, "wakelatch replay", now);
}

}  // namespace wakelatch::host
