#include "Host/StatsReport.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>

#include "Platform/Calendar.h"

namespace wakelatch::host {
namespace {

/// "05"
std::string twoDigits(std::int64_t value) {
  return (value < 10 ? "0" : "") + std::to_string(value);
}

std::vector<AgentFigures> agentsOf(const UsageMetrics& metrics) {
  std::map<std::string, AgentFigures> byID;
  for (const auto& [id, seconds] : metrics.protectedSecondsByAgent()) {
    byID[id].protectedSeconds = seconds;
  }
  for (const auto& [id, sessions] : metrics.sessionsByAgent()) byID[id].sessionsSaved = sessions;
  std::vector<AgentFigures> agents;
  for (auto& [id, agent] : byID) {
    agent.agentID = id;
    agents.push_back(std::move(agent));
  }
  std::stable_sort(agents.begin(), agents.end(), [](const auto& a, const auto& b) {
    return a.protectedSeconds > b.protectedSeconds;
  });
  return agents;
}

}  // namespace

StatsReport makeStatsReport(const UsageMetrics& metrics, Timestamp now, int days) {
  StatsReport report;
  report.installDate = metrics.installDate;
  report.totalProtectedSeconds = metrics.totalProtectedSeconds();
  report.totalKeptAwakeSeconds = metrics.totalKeptAwakeSeconds();
  report.totalManualSeconds = metrics.totalManualSeconds();
  report.totalPluggedInUnlimitedSeconds = metrics.totalPluggedInUnlimitedSeconds();
  report.totalSessionsSaved = metrics.totalSessionsSaved();
  report.totalWorkSessions = metrics.totalWorkSessions();
  report.activeDays = metrics.activeDays();
  report.utilization = metrics.utilization();
  if (metrics.longestProtectedRunSeconds > 0) {
    report.longestProtectedRun = {metrics.longestProtectedRunSeconds,
                                  metrics.longestProtectedRunAgent,
                                  metrics.longestProtectedRunDate};
  }
  report.lastRun = metrics.lastRun;
  report.lastRunEnding = endingText(metrics);
  report.agents = agentsOf(metrics);
  report.days = metrics.recentDays(days, now);
  return report;
}

double sane(double seconds) {
  constexpr double longest = 10000 * 365.25 * 86400;
  return seconds > 0 ? std::min(seconds, longest) : 0;  // 0 also when not a number
}

double awakeSeconds(const DayBucket& bucket) {
  double sum = 0;
  for (const AwakeKind& kind : awakeKinds) sum += sane(bucket.*kind.seconds);
  return sum;
}

double awakeSeconds(const StatsReport& report) {
  double sum = 0;
  for (const AwakeKind& kind : awakeKinds) sum += sane(report.*kind.total);
  return sum;
}

std::string durationText(double seconds) {
  const auto whole = static_cast<std::int64_t>(sane(seconds));
  if (whole < 60) return std::to_string(whole) + "s";
  const std::int64_t minutes = whole / 60;
  if (minutes < 60) return std::to_string(minutes) + "m";
  return std::to_string(minutes / 60) + "h " + twoDigits(minutes % 60) + "m";
}

std::string localTimeText(Timestamp time) {
  std::string text = platform::iso8601(time + platform::localOffset(time));
  if (text == "-") return text;
  text.resize(text.size() - std::string_view(":09Z").size());
  std::replace(text.begin(), text.end(), 'T', ' ');
  return text;
}

std::string dayText(const std::string& dayKey, bool withYear) {
  static constexpr std::array<std::string_view, 12> months{
      "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  unsigned month = 0, day = 0;
  const auto read = [&](std::size_t start, unsigned& value) {
    const char* end = dayKey.data() + start + 2;
    return std::from_chars(dayKey.data() + start, end, value).ptr == end;
  };
  if (dayKey.size() != 10 || !read(5, month) || !read(8, day) || month < 1 || month > 12) {
    return dayKey;
  }
  std::string text = std::to_string(day) + " " + std::string(months[month - 1]);
  if (withYear) text += " " + dayKey.substr(0, 4);
  return text;
}

std::string savedText(const StatsReport& report) {
  std::string text =
      std::to_string(report.totalSessionsSaved) + " of " + std::to_string(report.totalWorkSessions);
  if (report.utilization) {
    text += " (" + std::to_string(std::lround(*report.utilization * 100)) + "%)";
  }
  return text;
}

std::string_view endingText(const UsageMetrics& metrics) {
  if (!metrics.lastRun) return {};
  if (metrics.lastRun->finishedNormally) return "finished";
  if (metrics.lastCloseReason != SessionCloseReason::interrupted) return "ended";
  // That is why the newest session closed, which is the last run only if it kept the machine awake.
  // It is known to be when no other session was closed from the day on which the run ended.
  std::int64_t closedSince = 0;
  auto day = metrics.days.lower_bound(UsageMetrics::dayKey(metrics.lastRun->endedAt));
  for (; day != metrics.days.end(); ++day) {
    closedSince += std::clamp<std::int64_t>(day->second.totalSessions, 0, 2);  // cannot overflow
  }
  return closedSince == 1 ? "cut short" : "ended";
}

}  // namespace wakelatch::host
