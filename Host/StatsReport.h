// What the usage statistics say: the figures behind the text, the JSON object and the page.
// Pure functions of values, but for the time zone; callable from any thread.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WakelatchCore/UsageMetrics.h"

namespace wakelatch::host {

struct LongestRun {
  double seconds = 0;
  std::optional<std::string> agentID;
  std::optional<std::string> dayKey;  ///< the day on which it reached its length
};

struct AgentFigures {
  std::string agentID;
  double protectedSeconds = 0;
  std::int64_t sessionsSaved = 0;
};

struct StatsReport {
  Timestamp installDate;
  double totalProtectedSeconds = 0;
  double totalKeptAwakeSeconds = 0;
  double totalManualSeconds = 0;
  double totalPluggedInUnlimitedSeconds = 0;
  std::int64_t totalSessionsSaved = 0;
  std::int64_t totalWorkSessions = 0;
  std::int64_t activeDays = 0;
  std::optional<double> utilization;  ///< share of the sessions that were saved, 0 to 1
  std::optional<LongestRun> longestProtectedRun;
  std::optional<LastRunSummary> lastRun;
  std::string_view lastRunEnding;             ///< see endingText(); not in the JSON object
  std::vector<AgentFigures> agents;           ///< most protected time first
  std::vector<UsageMetrics::RecentDay> days;  ///< oldest first
};

/// The figures with the last `days` days (at least 0) one by one, today included.
StatsReport makeStatsReport(const UsageMetrics& metrics, Timestamp now, int days);

/// One kind of time that the machine was kept awake.
struct AwakeKind {
  double DayBucket::*seconds;
  double StatsReport::*total;
  std::string_view name;
  std::string_view meaning;
};
/// The kinds in the order in which they are shown.
inline constexpr std::array<AwakeKind, 4> awakeKinds{{
    {&DayBucket::protectedSeconds, &StatsReport::totalProtectedSeconds, "Protected",
     "an agent at work, lid closed"},
    {&DayBucket::keptAwakeSeconds, &StatsReport::totalKeptAwakeSeconds, "Kept awake",
     "an agent at work, lid open"},
    {&DayBucket::manualSeconds, &StatsReport::totalManualSeconds, "Manual", "asked for by hand"},
    {&DayBucket::pluggedInUnlimitedSeconds, &StatsReport::totalPluggedInUnlimitedSeconds,
     "Plugged in", "unlimited on external power"},
}};

/// All kinds of a day together, in sane seconds.
double awakeSeconds(const DayBucket& bucket);
/// All kinds of one day of the statistics together, in sane seconds; 0 for a day without any.
double awakeSeconds(const UsageMetrics& metrics, const std::string& dayKey);
/// All kinds of all days together, in sane seconds.
double awakeSeconds(const StatsReport& report);

/// "31 of 40 (78%)".
std::string savedText(const StatsReport& report);
/// How the last run ended: "finished" when its agent went idle, "cut short" when it is known that
/// the ticks were interrupted, else "ended"; empty without a last run.
std::string_view endingText(const UsageMetrics& metrics);

}  // namespace wakelatch::host

namespace wakelatch {

template <>
inline constexpr auto json::fields<host::LongestRun> = std::tuple{
    json::required("seconds", &host::LongestRun::seconds),
    json::optional("agentID", &host::LongestRun::agentID),
    json::optional("dayKey", &host::LongestRun::dayKey),
};
template <>
inline constexpr auto json::fields<host::AgentFigures> = std::tuple{
    json::required("agentID", &host::AgentFigures::agentID),
    json::required("protectedSeconds", &host::AgentFigures::protectedSeconds),
    json::required("sessionsSaved", &host::AgentFigures::sessionsSaved),
};
template <>
inline constexpr auto json::fields<UsageMetrics::RecentDay> = std::tuple{
    json::required("dayKey", &UsageMetrics::RecentDay::dayKey),
    json::required("bucket", &UsageMetrics::RecentDay::bucket),
};
template <>
inline constexpr auto json::fields<host::StatsReport> = std::tuple{
    json::required("installDate", &host::StatsReport::installDate),
    json::required("totalProtectedSeconds", &host::StatsReport::totalProtectedSeconds),
    json::required("totalKeptAwakeSeconds", &host::StatsReport::totalKeptAwakeSeconds),
    json::required("totalManualSeconds", &host::StatsReport::totalManualSeconds),
    json::required("totalPluggedInUnlimitedSeconds",
                   &host::StatsReport::totalPluggedInUnlimitedSeconds),
    json::required("totalSessionsSaved", &host::StatsReport::totalSessionsSaved),
    json::required("totalWorkSessions", &host::StatsReport::totalWorkSessions),
    json::required("activeDays", &host::StatsReport::activeDays),
    json::optional("utilization", &host::StatsReport::utilization),
    json::optional("longestProtectedRun", &host::StatsReport::longestProtectedRun),
    json::optional("lastRun", &host::StatsReport::lastRun),
    json::required("agents", &host::StatsReport::agents),
    json::required("days", &host::StatsReport::days),
};

}  // namespace wakelatch
