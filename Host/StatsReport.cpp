#include "Host/StatsReport.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

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

double awakeSeconds(const DayBucket& bucket) {
  double sum = 0;
  for (const AwakeKind& kind : awakeKinds) sum += sane(bucket.*kind.seconds);
  return sum;
}

double awakeSeconds(const UsageMetrics& metrics, const std::string& dayKey) {
  const auto day = metrics.days.find(dayKey);
  return day == metrics.days.end() ? 0 : awakeSeconds(day->second);
}

double awakeSeconds(const StatsReport& report) {
  double sum = 0;
  for (const AwakeKind& kind : awakeKinds) sum += sane(report.*kind.total);
  return sum;
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
  // The reason is that of the newest session. A run is only a session that kept the machine awake,
  // so the newest one is surely the last run when no other session was closed since the day it
  // ended.
  std::int64_t closedSince = 0;
  auto day = metrics.days.lower_bound(UsageMetrics::dayKey(metrics.lastRun->endedAt));
  for (; day != metrics.days.end(); ++day) {
    closedSince += std::clamp<std::int64_t>(day->second.totalSessions, 0, 2);  // cannot overflow
  }
  return closedSince == 1 ? "cut short" : "ended";
}

}  // namespace wakelatch::host
