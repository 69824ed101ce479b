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
  Screen(const WatchTick& tick, Timestamp now, const TerminalStyle& style)
      : tick_(tick), report_(tick.report), now_(now), style_(style) {}

  std::vector<std::string> lines(const std::deque<std::string>& notices) {
    state();
    agents();
    machine();
    int age = static_cast<int>(notices.size());
    for (const std::string& notice : notices) add(Importance::notice, age--, {{notice}});
    return layout();
  }

 private:
  void add(Importance importance, int order, std::vector<Span> spans) {
    rows_.push_back({importance, order, std::move(spans)});
  }

  /// Adds a row with a title before it; an empty one is as wide as any other.
  void addTitled(Importance importance, int order, std::string_view title,
                 std::vector<Span> spans) {
    spans.insert(spans.begin(), {padded(title, titleWidth)});
    add(importance, order, std::move(spans));
  }

  /// What is going on, what is held, and until when.
  void state() {
    const GuardDecision& decision = report_.decision;
    add(Importance::essential, 0,
        {{std::string(displayName(decision.status)), colorOf(decision.status)},
         {"  " + localTime(now_)}});
    addTitled(Importance::reason, 0, "Why", {{decision.reason}});
    held();
    if (tick_.graceEndsAt) ends("idle grace ends", *tick_.graceEndsAt);
    if (report_.watch && report_.watch->held.releaseDueAt) {
      ends("lid-closed keep-awake ends", *report_.watch->held.releaseDueAt);
    }
  }

  void held() {
    if (!report_.watch) {
      addTitled(Importance::essential, 0, "Held", {{"nothing: this is a dry run"}});
      return;
    }
    const Held& held = report_.watch->held;
    std::vector<Span> spans;
    if (held.since) {
      spans.push_back({"since " + localTime(*held.since) + " (" +
                       durationText(secondsBetween(*held.since, now_)) + "): "});
    }
    spans.push_back({describe(held), held.isRestoreOpen ? bad : plain});
    addTitled(Importance::essential, 0, "Held", std::move(spans));
    if (held.prompt) {
      addTitled(Importance::essential, 0, "Prompt", {{"open: ", doubtful}, {*held.prompt}});
    }
  }

  void ends(const char* what, Timestamp time) {
    addTitled(Importance::countdown, 0, "Until",
              {{std::string(what) + " in " + countdownText(secondsBetween(now_, time)) + ", at " +
                localTime(time)}});
  }

  void agents() {
    const char* title = "Agents";
    if (report_.evidence.empty()) addTitled(Importance::agent, 0, title, {{"none seen"}});
    int evidence = 0;
    for (const AgentEvidence& agent : report_.evidence) {
      const SignalStrength strength = strengthOf(agent, report_);
      addTitled(Importance::agent, -static_cast<int>(strength), std::exchange(title, ""),
                {{padded(strengthWord(strength), stateWidth), colorOf(strength)}, {agent.agent}});
      for (const std::string& line : agent.seen) {
        addTitled(Importance::evidence, evidence++, "", {{"  " + line}});
      }
      for (const std::string& line : agent.notBelieved) {
        addTitled(Importance::evidence, evidence++, "", {{"  not believed: " + line}});
      }
    }
    if (report_.uiTextNotice) {
      addTitled(Importance::evidence, evidence, "UI text", {{*report_.uiTextNotice}});
    }
  }

  void machine() {
    addTitled(Importance::machine, 0, "Machine",
              {{report_.power.displayName()},
               {report_.decision.isBatteryWarning ? " (low)" : "", doubtful},
               {"; lid " + std::string(rawValue(report_.lidState)) + "; heat "},
               {std::string(rawValue(report_.thermalState)), colorOf(report_.thermalState)}});
    addTitled(Importance::today, 0, "Today",
              {{"kept awake " + durationText(tick_.keptSecondsToday)}});
    addTitled(Importance::today, 1, "Mode", {{std::string(displayName(report_.mode))}});
  }

  std::vector<std::string> layout() {
    const auto most = static_cast<std::size_t>(std::max(style_.rows - 1, 0));
    std::vector<std::size_t> kept(rows_.size());
    std::iota(kept.begin(), kept.end(), std::size_t{0});
    std::stable_sort(kept.begin(), kept.end(), [this](std::size_t a, std::size_t b) {
      return std::pair(rows_[a].importance, rows_[a].order) <
             std::pair(rows_[b].importance, rows_[b].order);
    });
    std::size_t essential = 0;
    for (const Row& row : rows_) essential += row.importance == Importance::essential;
    kept.resize(std::min(kept.size(), std::max(most, essential)));
    std::sort(kept.begin(), kept.end());

    std::vector<std::vector<Span>> lines;
    lines.reserve(kept.size());
    for (const std::size_t row : kept) lines.push_back(std::move(rows_[row].spans));
    // Rows that may not be left out share a line.
    for (; lines.size() > most && lines.size() > 1; lines.erase(lines.begin() + 1)) {
      lines[0].push_back({"  "});
      lines[0].insert(lines[0].end(), lines[1].begin(), lines[1].end());
    }
    lines.resize(std::min(lines.size(), most));
    std::vector<std::string> result;
    result.reserve(lines.size());
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

  const WatchTick& tick_;
  const StatusReport& report_;
  const Timestamp now_;
  const TerminalStyle& style_;
  std::vector<Row> rows_;
};

}  // namespace

std::vector<std::string> watchScreen(const WatchTick& tick, Timestamp now,
                                     const std::deque<std::string>& notices,
                                     const TerminalStyle& style) {
  return Screen(tick, now, style).lines(notices);
}

}  // namespace wakelatch::host
