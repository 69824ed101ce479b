#include "Host/WatchScreen.h"

#include <algorithm>
#include <numeric>
#include <string_view>
#include <utility>

#include "Host/Terminal.h"
#include "Host/TimeText.h"
#include "Host/WatchText.h"

namespace wakelatch::host {
namespace {

constexpr const char* plain = "";
constexpr const char* good = "\033[32m";
constexpr const char* doubtful = "\033[33m";
constexpr const char* bad = "\033[31m";

/// Text in one colour.
struct Span {
  std::string text;
  const char* color = plain;
};

/// The last ones go first when rows are few.
enum class Importance { essential, countdown, agent, reason, machine, today, notice, evidence };

struct Row {
  Importance importance;
  int order;  ///< among equally important rows the highest goes first
  std::vector<Span> spans;
};

const char* colorOf(GuardStatus status) {
  switch (status) {
    case GuardStatus::keepingAwake:
    case GuardStatus::pluggedInUnlimited:
      return good;
    case GuardStatus::idleGrace:
      return doubtful;
    case GuardStatus::batterySafety:
    case GuardStatus::thermalSafety:
      return bad;
    case GuardStatus::off:
    case GuardStatus::watching:
      return plain;
  }
  return plain;
}

const char* colorOf(SignalStrength strength) {
  return strength == SignalStrength::strong ? good
         : strength == SignalStrength::weak ? doubtful
                                            : plain;
}

const char* colorOf(ThermalState state) {
  return state == ThermalState::critical ? bad : state == ThermalState::serious ? doubtful : plain;
}

/// Gathers the rows from top to bottom, then lays them out.
class Screen {
 public:
  Screen(const ScreenInput& input, const TerminalStyle& style) : input_(input), style_(style) {}

  std::vector<std::string> lines() {
    state();
    agents();
    machine();
    notices();
    return layout();
  }

 private:
  void add(Importance importance, int order, std::vector<Span> spans) {
    rows_.push_back({importance, order, std::move(spans)});
  }

  /// The same behind a title, or its width in blanks.
  void addTitled(Importance importance, int order, std::string_view title,
                 std::vector<Span> spans) {
    spans.insert(spans.begin(), {padded(title, titleWidth)});
    add(importance, order, std::move(spans));
  }

  /// What is going on, what is held, and until when.
  void state() {
    const StatusReport& report = input_.report;
    const GuardDecision& decision = report.decision;
    add(Importance::essential, 0,
        {{std::string(displayName(decision.status)), colorOf(decision.status)},
         {"  " + localTime(input_.now)}});
    addTitled(Importance::reason, 0, "Why", {{decision.reason}});
    held();
    if (input_.graceEndsAt) ends("idle grace ends", *input_.graceEndsAt);
    if (report.watch && report.watch->held.releaseDueAt) {
      ends("lid-closed keep-awake ends", *report.watch->held.releaseDueAt);
    }
  }

  void held() {
    if (!input_.report.watch) {
      addTitled(Importance::essential, 0, "Held", {{"nothing: this is a dry run"}});
      return;
    }
    const Held& held = input_.report.watch->held;
    std::vector<Span> spans;
    if (held.since) {
      spans.push_back({"since " + localTime(*held.since) + " (" +
                       durationText(secondsBetween(*held.since, input_.now)) + "): "});
    }
    spans.push_back({describe(held), held.isRestoreOpen ? bad : plain});
    addTitled(Importance::essential, 0, "Held", std::move(spans));
    if (held.prompt) {
      addTitled(Importance::essential, 0, "Prompt", {{"open: ", doubtful}, {*held.prompt}});
    }
  }

  void ends(const char* what, Timestamp time) {
    addTitled(Importance::countdown, 0, "Until",
              {{std::string(what) + " in " + countdownText(secondsBetween(input_.now, time)) +
                ", at " + localTime(time)}});
  }

  void agents() {
    const StatusReport& report = input_.report;
    const char* title = "Agents";
    if (report.evidence.empty()) addTitled(Importance::agent, 0, title, {{"none seen"}});
    int evidence = 0;
    for (const AgentEvidence& agent : report.evidence) {
      const SignalStrength strength = strengthOf(agent, report);
      addTitled(Importance::agent, -static_cast<int>(strength), std::exchange(title, ""),
                {{padded(strengthWord(strength), stateWidth), colorOf(strength)}, {agent.agent}});
      for (const std::string& line : agent.seen) {
        addTitled(Importance::evidence, evidence++, "", {{"  " + line}});
      }
      for (const std::string& line : agent.notBelieved) {
        addTitled(Importance::evidence, evidence++, "", {{"  not believed: " + line}});
      }
    }
    if (report.uiTextNotice) {
      addTitled(Importance::evidence, evidence, "UI text", {{*report.uiTextNotice}});
    }
  }

  void machine() {
    const StatusReport& report = input_.report;
    addTitled(Importance::machine, 0, "Machine",
              {{report.power.displayName()},
               {report.decision.isBatteryWarning ? " (low)" : "", doubtful},
               {"; lid " + std::string(rawValue(report.lidState)) + "; heat "},
               {std::string(rawValue(report.thermalState)), colorOf(report.thermalState)}});
    addTitled(Importance::today, 0, "Today",
              {{"kept awake " + durationText(input_.keptSecondsToday)}});
    addTitled(Importance::today, 1, "Mode", {{std::string(displayName(report.mode))}});
  }

  void notices() {
    int age = static_cast<int>(input_.notices.size());
    for (const std::string& notice : input_.notices) {
      add(Importance::notice, age--, {{notice}});
    }
  }

  std::vector<std::string> layout() {
    const auto room = static_cast<std::size_t>(std::max(style_.rows - 1, 0));
    std::vector<std::size_t> kept(rows_.size());
    std::iota(kept.begin(), kept.end(), std::size_t{0});
    std::stable_sort(kept.begin(), kept.end(), [this](std::size_t a, std::size_t b) {
      return std::pair(rows_[a].importance, rows_[a].order) <
             std::pair(rows_[b].importance, rows_[b].order);
    });
    std::size_t essential = 0;
    for (const Row& row : rows_) essential += row.importance == Importance::essential;
    kept.resize(std::min(kept.size(), std::max(room, essential)));
    std::sort(kept.begin(), kept.end());

    std::vector<std::vector<Span>> lines;
    for (const std::size_t row : kept) lines.push_back(std::move(rows_[row].spans));
    // What may not be left out shares a line.
    for (; lines.size() > room && lines.size() > 1; lines.erase(lines.begin() + 1)) {
      lines[0].push_back({"  "});
      lines[0].insert(lines[0].end(), lines[1].begin(), lines[1].end());
    }
    lines.resize(std::min(lines.size(), room));
    std::vector<std::string> result;
    for (const auto& spans : lines) result.push_back(rendered(spans));
    return result;
  }

  std::string rendered(const std::vector<Span>& spans) const {
    std::string line;
    int columnsLeft = std::max(style_.columns, 1);
    for (const Span& span : spans) {
      const std::string whole = printable(span.text);
      const std::string_view text = firstColumns(whole, columnsLeft);
      const bool isColored = style_.hasColor && *span.color != '\0' && !text.empty();
      if (isColored) line += span.color;
      line += text;
      if (isColored) line += "\033[0m";
      if (text.size() < whole.size()) break;
      columnsLeft -= columnsOf(text);
    }
    return line;
  }

  static constexpr int titleWidth = 9;
  static constexpr int stateWidth = 14;

  const ScreenInput& input_;
  const TerminalStyle& style_;
  std::vector<Row> rows_;
};

}  // namespace

std::vector<std::string> watchScreen(const ScreenInput& input, const TerminalStyle& style) {
  return Screen(input, style).lines();
}

}  // namespace wakelatch::host
