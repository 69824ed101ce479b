#include "Host/StatsCommand.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "Host/Notices.h"
#include "Host/StatsPage.h"
#include "Host/SupportDirectory.h"
#include "Host/Terminal.h"
#include "Host/UsageStore.h"
#include "Platform/Files.h"
#include "Platform/Text.h"

namespace wakelatch::host {
namespace {

/// How each kind of time is drawn: told apart by shade as well as by colour.
struct Ink {
  std::string_view block;
  std::string_view colour;
};
constexpr std::array<Ink, awakeKinds.size()> inks{{
    {"█", "\033[36m"},
    {"▓", "\033[34m"},
    {"▒", "\033[33m"},
    {"░", "\033[35m"},
}};
constexpr std::string_view bold = "\033[1m";
constexpr std::string_view plain = "\033[0m";

std::string repeated(std::string_view text, int count) {
  std::string result;
  for (int i = 0; i < count; ++i) result += text;
  return result;
}

std::string padded(std::string text, std::size_t width, bool right = false) {
  if (text.size() < width) text.insert(right ? 0 : text.size(), width - text.size(), ' ');
  return text;
}

/// A name from outside, cut to `limit` characters. Such names may be of any width, so each stands
/// at the end of its line, where it moves nothing.
std::string shownName(const std::string& name, int limit) {
  std::string shown = printable(name);
  const auto room = static_cast<std::size_t>(std::max(limit, 8));
  if (platform::firstCharacters(shown, room).size() == shown.size()) return shown;
  return std::string(platform::firstCharacters(shown, room - 1)) + "…";
}

/// Writes the report; holds what all its sections need.
class Writer {
 public:
  Writer(const StatsReport& report, const TextStyle& style) : report_(report), style_(style) {}

  std::string text() {
    totals();
    agents();
    days();
    return std::move(out_);
  }

 private:
  void heading(std::string_view text) { out_ += paint(bold, text) + "\n"; }

  std::string paint(std::string_view colour, std::string_view text) const {
    if (!style_.colour || text.empty()) return std::string(text);
    return std::string(colour) + std::string(text) + std::string(plain);
  }

  void line(std::string_view label, const std::string& value) {
    out_ += "  " + padded(std::string(label), 16) + value + "\n";
  }

  void totals() {
    heading("Since " + UsageMetrics::dayKey(report_.installDate) + ", " +
            std::to_string(report_.activeDays) +
            (report_.activeDays == 1 ? " active day" : " active days"));
    for (const AwakeKind& kind : awakeKinds) {
      line(kind.name, padded(durationText(report_.*kind.total), 12) + std::string(kind.meaning));
    }
    line("Sessions saved", savedText(report_));
    if (const auto& run = report_.longestProtectedRun) {
      std::string value = padded(durationText(run->seconds), 12) + run->dayKey.value_or("");
      if (run->agentID) value += "  " + shownName(*run->agentID, style_.width - 42);
      line("Longest run", value);
    }
    if (const auto& run = report_.lastRun) {
      std::string value = padded(durationText(run->workedSeconds), 12) +
                          localTimeText(run->endedAt) + ", " + std::string(report_.lastRunEnding);
      if (run->agentDisplayName) value += "  " + shownName(*run->agentDisplayName, 24);
      line("Last run", value);
    }
  }

  void agents() {
    if (report_.agents.empty()) return;
    out_ += "\n";
    heading("Agents");
    out_ += "  Protected   Saved\n";
    const int barWidth = std::clamp(style_.width / 4, 8, 30);
    const double longest = sane(report_.agents.front().protectedSeconds);
    for (const AgentFigures& agent : report_.agents) {
      const double share = longest > 0 ? sane(agent.protectedSeconds) / longest : 0;
      const int cells = static_cast<int>(std::lround(share * barWidth));
      out_ += "  " + padded(durationText(agent.protectedSeconds), 9, true) +
              padded(std::to_string(agent.sessionsSaved), 8, true) + "  " +
              paint(inks[0].colour, repeated(inks[0].block, cells)) +
              std::string(static_cast<std::size_t>(barWidth - cells + 1), ' ') +
              shownName(agent.agentID, style_.width - barWidth - 22) + "\n";
    }
  }

  void days() {
    if (report_.days.empty()) return;
    out_ += "\n";
    heading("Last " + std::to_string(report_.days.size()) +
            (report_.days.size() == 1 ? " day" : " days"));
    double longest = 0;
    for (const auto& day : report_.days) longest = std::max(longest, awakeSeconds(day.bucket));
    for (const auto& day : report_.days) {
      out_ += "  " + day.dayKey + padded(durationText(awakeSeconds(day.bucket)), 9, true);
      if (awakeSeconds(day.bucket) > 0) {
        out_ += "  " + bar(day.bucket, longest, std::max(style_.width - 24, 8));
      }
      out_ += "\n";
    }
    out_ += "  ";
    for (std::size_t i = 0; i < awakeKinds.size(); ++i) {
      out_ += (i > 0 ? "   " : "") + paint(inks[i].colour, inks[i].block) + " " +
              std::string(awakeKinds[i].name);
    }
    out_ += "\n";
  }

  /// A day's kinds side by side, `width` cells for `longest` seconds; each ends where the sum so
  /// far does, so rounding never changes the length of the whole.
  std::string bar(const DayBucket& bucket, double longest, int width) const {
    std::string result;
    double sum = 0;
    int drawn = 0;
    for (std::size_t i = 0; i < awakeKinds.size(); ++i) {
      sum += sane(bucket.*awakeKinds[i].seconds);
      const int end = static_cast<int>(std::lround(sum / longest * width));
      result += paint(inks[i].colour, repeated(inks[i].block, end - drawn));
      drawn = end;
    }
    return drawn == 0 ? "▏" : result;
  }

  const StatsReport& report_;
  const TextStyle& style_;
  std::string out_;
};

TextStyle standardOutputStyle() {
  return {terminalSize(STDOUT_FILENO).columns, isScreen(STDOUT_FILENO) && wantsColor()};
}

}  // namespace

std::string statsText(const StatsReport& report, const TextStyle& style) {
  return Writer(report, style).text();
}

ExitStatus runStats(const StatsOptions& options) {
  try {
    const Timestamp now = platform::now();
    const std::optional<UsageMetrics> stored = loadUsage(usageFile());
    const UsageMetrics metrics = stored.value_or(UsageMetrics(now));
    if (!options.htmlFile.empty()) {
      const auto kind = std::filesystem::status(options.htmlFile).type();
      if (kind != std::filesystem::file_type::not_found &&
          kind != std::filesystem::file_type::regular) {
        throw std::runtime_error("not a regular file: " + options.htmlFile);
      }
      platform::writeAtomically(options.htmlFile, statsPage(metrics, now, options.days));
    }
    if (options.json) {
      std::cout << encode(makeStatsReport(metrics, now, options.days), DateCoding::iso8601) << "\n";
    } else if (!options.htmlFile.empty()) {
      std::cout << "Wrote " << printable(options.htmlFile) << "\n";
    } else if (!stored) {
      std::cout << "Nothing is recorded yet; `wakelatch watch` records while it runs.\n";
    } else {
      std::cout << statsText(makeStatsReport(metrics, now, options.days), standardOutputStyle());
    }
  } catch (const std::exception& error) {
    printNotice(error.what());
    return ExitStatus::failed;
  }
  if (!std::cout.flush()) {
    printNotice("cannot write to standard output");
    return ExitStatus::failed;
  }
  return ExitStatus::done;
}

}  // namespace wakelatch::host
