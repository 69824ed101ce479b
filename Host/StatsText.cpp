#include "Host/StatsText.h"

#include <algorithm>
#include <cmath>

#include "Host/TimeText.h"
#include "Platform/Text.h"

namespace wakelatch::host {
namespace {

/// How each kind of time is drawn: told apart by shade as well as by color.
struct Ink {
  std::string_view block;
  std::string_view color;
};
constexpr std::array<Ink, awakeKinds.size()> inks{{
    {"█", "\033[36m"},
    {"▓", "\033[34m"},
    {"▒", "\033[33m"},
    {"░", "\033[35m"},
}};
constexpr std::string_view bold = "\033[1m";
constexpr std::string_view reset = "\033[0m";

std::string repeated(std::string_view text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

/// A name from outside, cut to `limit` characters. Such names may be of any width, so each stands
/// at the end of its line, where it moves nothing.
std::string shownName(const std::string& name, int limit) {
  std::string shown = printable(name);
  const auto most = static_cast<std::size_t>(std::max(limit, 8));
  if (platform::firstCharacters(shown, most).size() == shown.size()) return shown;
  return std::string(platform::firstCharacters(shown, most - 1)) + "…";
}

/// Writes the report; holds what all its sections need.
class Writer {
 public:
  Writer(const StatsReport& report, const TerminalStyle& style) : report_(report), style_(style) {}

  std::string text() {
    totals();
    agents();
    days();
    return std::move(out_);
  }

 private:
  void heading(std::string_view text) { out_ += paint(bold, text) + "\n"; }

  std::string paint(std::string_view color, std::string_view text) const {
    if (!style_.hasColor || text.empty()) return std::string(text);
    return std::string(color) + std::string(text) + std::string(reset);
  }

  void line(std::string_view label, const std::string& value) {
    out_ += "  " + padded(label, 16) + value + "\n";
  }

  void totals() {
    heading("Since " + UsageMetrics::dayKey(report_.installDate) + ", " +
            counted(report_.activeDays, "active day"));
    for (const AwakeKind& kind : awakeKinds) {
      line(kind.name, padded(durationText(report_.*kind.total), 12) + std::string(kind.meaning));
    }
    line("Sessions saved", savedText(report_));
    if (const auto& run = report_.longestProtectedRun) {
      std::string value = padded(durationText(run->seconds), 12) + run->dayKey.value_or("");
      if (run->agentID) value += "  " + shownName(*run->agentID, style_.columns - 42);
      line("Longest run", value);
    }
    if (const auto& run = report_.lastRun) {
      std::string value = padded(durationText(run->workedSeconds), 12) +
                          localDateAndTime(run->endedAt) + ", " +
                          std::string(report_.lastRunEnding);
      if (run->agentDisplayName) value += "  " + shownName(*run->agentDisplayName, 24);
      line("Last run", value);
    }
  }

  void agents() {
    if (report_.agents.empty()) return;
    out_ += "\n";
    heading("Agents");
    out_ += "  Protected   Saved\n";
    const int barWidth = std::clamp(style_.columns / 4, 8, 30);
    const double longest = sane(report_.agents.front().protectedSeconds);
    for (const AgentFigures& agent : report_.agents) {
      const double share = longest > 0 ? sane(agent.protectedSeconds) / longest : 0;
      const int cells = static_cast<int>(std::lround(share * barWidth));
      out_ += "  " + paddedLeft(durationText(agent.protectedSeconds), 9) +
              paddedLeft(std::to_string(agent.sessionsSaved), 8) + "  " +
              paint(inks[0].color, repeated(inks[0].block, cells)) +
              padded("", barWidth - cells + 1) +
              shownName(agent.agentID, style_.columns - barWidth - 22) + "\n";
    }
  }

  void days() {
    if (report_.days.empty()) return;
    out_ += "\n";
    heading("Last " + counted(std::ssize(report_.days), "day"));
    double longest = 0;
    for (const auto& day : report_.days) longest = std::max(longest, awakeSeconds(day.bucket));
    for (const auto& day : report_.days) {
      out_ += "  " + day.dayKey + paddedLeft(durationText(awakeSeconds(day.bucket)), 9);
      if (awakeSeconds(day.bucket) > 0) {
        out_ += "  " + bar(day.bucket, longest, std::max(style_.columns - 24, 8));
      }
      out_ += "\n";
    }
    out_ += "  ";
    for (std::size_t i = 0; i < awakeKinds.size(); ++i) {
      out_ += (i > 0 ? "   " : "") + paint(inks[i].color, inks[i].block) + " " +
              std::string(awakeKinds[i].name);
    }
    out_ += "\n";
  }

  /// A day's kinds side by side, with `width` cells for `longest` seconds. Each kind ends at the
  /// rounded sum so far, so that rounding does not change the length of the whole.
  std::string bar(const DayBucket& bucket, double longest, int width) const {
    std::string result;
    double sum = 0;
    int drawn = 0;
    for (std::size_t i = 0; i < awakeKinds.size(); ++i) {
      sum += sane(bucket.*awakeKinds[i].seconds);
      const int end = static_cast<int>(std::lround(sum / longest * width));
      result += paint(inks[i].color, repeated(inks[i].block, end - drawn));
      drawn = end;
    }
    return drawn == 0 ? "▏" : result;
  }

  const StatsReport& report_;
  const TerminalStyle& style_;
  std::string out_;
};

}  // namespace

std::string statsText(const StatsReport& report, const TerminalStyle& style) {
  return Writer(report, style).text();
}

}  // namespace wakelatch::host
