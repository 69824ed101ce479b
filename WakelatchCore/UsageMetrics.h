// Statistics of the protected work: by calendar day and agent, the session in progress and the last
// finished run. Plain values with a JSON form; a host stores them and passes them through
// recording() once per tick. Pure computation, callable from any thread; only the process's time
// zone comes from outside.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/Enum.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/Models.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Why the machine is kept awake in a tick, and so where its time is booked.
enum class KeepAwakeTrigger {
  none,                ///< booked nowhere
  manual,              ///< DayBucket::manualSeconds
  pluggedInUnlimited,  ///< DayBucket::pluggedInUnlimitedSeconds
  activeSignal,        ///< DayBucket::protectedSeconds with the lid closed, else keptAwakeSeconds
  idleGrace,           ///< booked nowhere
};
template <>
inline constexpr auto enumCases<KeepAwakeTrigger> = std::to_array<EnumCase<KeepAwakeTrigger>>({
    {KeepAwakeTrigger::none, "none"},
    {KeepAwakeTrigger::manual, "manual"},
    {KeepAwakeTrigger::pluggedInUnlimited, "pluggedInUnlimited"},
    {KeepAwakeTrigger::activeSignal, "activeSignal"},
    {KeepAwakeTrigger::idleGrace, "idleGrace"},
});

/// Why a work session ended.
enum class SessionCloseReason {
  idle,         ///< no active signal for the idle grace period
  interrupted,  ///< the ticks stopped for a while, or time did not advance
  vanished,     ///< the agent's process is gone
};
template <>
inline constexpr auto enumCases<SessionCloseReason> = std::to_array<EnumCase<SessionCloseReason>>({
    {SessionCloseReason::idle, "idle"},
    {SessionCloseReason::interrupted, "interrupted"},
    {SessionCloseReason::vanished, "vanished"},
});

/// The statistics of one calendar day.
struct DayBucket {
  double protectedSeconds = 0;           ///< kept awake for an active agent, lid closed
  double keptAwakeSeconds = 0;           ///< kept awake for an active agent, lid open or unknown
  double manualSeconds = 0;              ///< in AppMode::manualKeepAwake
  double pluggedInUnlimitedSeconds = 0;  ///< in AppMode::pluggedInUnlimited
  std::int64_t sessionsSaved = 0;        ///< sessions closed on this day that had protected time
  std::int64_t totalSessions = 0;        ///< sessions closed on this day
  std::map<std::string, double> protectedSecondsByAgent = {};  ///< keyed by agent id
  std::map<std::string, std::int64_t> sessionsByAgent = {};    ///< sessionsSaved by agent id

  friend bool operator==(const DayBucket&, const DayBucket&) = default;
};
template <>
inline constexpr auto json::fields<DayBucket> = std::tuple{
    json::required("protectedSeconds", &DayBucket::protectedSeconds),
    json::required("keptAwakeSeconds", &DayBucket::keptAwakeSeconds),
    json::required("manualSeconds", &DayBucket::manualSeconds),
    json::required("pluggedInUnlimitedSeconds", &DayBucket::pluggedInUnlimitedSeconds),
    json::required("sessionsSaved", &DayBucket::sessionsSaved),
    json::required("totalSessions", &DayBucket::totalSessions),
    json::required("protectedSecondsByAgent", &DayBucket::protectedSecondsByAgent),
    json::required("sessionsByAgent", &DayBucket::sessionsByAgent),
};

/// The last closed session that kept the machine awake.
struct LastRunSummary {
  std::optional<std::string> agentDisplayName = {};  ///< the session's agent id
  Timestamp endedAt = {};         ///< for an interrupted session the last tick before the gap
  double workedSeconds = 0;       ///< from its start to its last active signal, never negative
  double protectedSeconds = 0;    ///< kept awake for its agent, lid closed
  double keptAwakeSeconds = 0;    ///< kept awake for its agent, lid open or unknown
  bool finishedNormally = false;  ///< whether it closed because the agent went idle

  friend bool operator==(const LastRunSummary&, const LastRunSummary&) = default;
};
template <>
inline constexpr auto json::fields<LastRunSummary> = std::tuple{
    json::optional("agentDisplayName", &LastRunSummary::agentDisplayName),
    json::required("endedAt", &LastRunSummary::endedAt),
    json::required("workedSeconds", &LastRunSummary::workedSeconds),
    json::required("protectedSeconds", &LastRunSummary::protectedSeconds),
    json::required("keptAwakeSeconds", &LastRunSummary::keptAwakeSeconds),
    json::required("finishedNormally", &LastRunSummary::finishedNormally),
};

/// All statistics. Hosts may read the fields, but only recording() changes them.
struct UsageMetrics {
  std::map<std::string, DayBucket> days = {};  ///< by day key; entries are never removed
  Timestamp installDate = {};                  ///< when statistics began
  double longestProtectedRunSeconds = 0;       ///< longest run of consecutive protected ticks
  std::optional<std::string> longestProtectedRunAgent = {};  ///< the agent of its last tick
  std::optional<std::string> longestProtectedRunDate = {};   ///< the day key on which it ended
  std::optional<Timestamp> sessionStartedAt = {};            ///< absent: no session is open
  bool sessionQualified = false;                   ///< whether the session had protected time
  std::optional<std::string> sessionAgentID = {};  ///< the agent that opened the session
  double sessionRunSeconds = 0;              ///< length of the current uninterrupted protected run
  std::optional<Timestamp> lastTickAt = {};  ///< the next tick counts time from here
  std::optional<Timestamp> lastActiveSignalAt = {};  ///< of the open session
  std::int64_t wakeGapTicksDropped = 0;  ///< ticks not counted: too long after the previous tick
  std::optional<LastRunSummary> lastRun = {};  ///< absent: no session kept the machine awake yet
  /// Why the last session closed, whether or not it kept the machine awake.
  std::optional<SessionCloseReason> lastCloseReason = {};
  ///@{
  /// Seconds kept awake for an agent with the lid closed, and with it open or unknown, since the
  /// last session closed: time before a session opens belongs to that session.
  double sessionProtectedSeconds = 0;
  double sessionKeptAwakeSeconds = 0;
  ///@}

  /// The longest time between two ticks that is counted, in seconds.
  static constexpr double maxClampedElapsed = 10;

  /// Empty statistics that begin at `since`.
  explicit UsageMetrics(Timestamp since = {}) : installDate(since) {}

  /// The key of the local day of an instant in the process's time zone, "2025-03-01". Keys sort in
  /// the order of time. Instants outside the years 0000 to 9999 fall on the first or last day. The
  /// C library determines the zone at the first call; a later change of TZ takes effect with the
  /// next tzset().
  static std::string dayKey(Timestamp instant);

  /// `metrics` advanced by one tick; to be called in the order of the ticks. Move the statistics
  /// in: a copy costs more the longer the history is.
  /// @param effectiveKeepAwake      whether the machine is being kept awake
  /// @param agentID                 the agent that gave the signal
  /// @param idleGracePeriodSeconds  how long a session lasts without an active signal
  /// @param sessionProcessAlive     whether the session's agent process lives; absent: not known
  static UsageMetrics recording(UsageMetrics metrics, bool effectiveKeepAwake,
                                KeepAwakeTrigger triggerRung, SignalStrength signalStrength,
                                LidState lidState, const std::optional<std::string>& agentID,
                                double idleGracePeriodSeconds,
                                std::optional<bool> sessionProcessAlive, Timestamp now);

  /// The log line for a session that has closed.
  /// @param session                the statistics before the tick that closed the session
  /// @param sessionFileAgeSeconds  whole seconds since the agent last wrote its session file
  static std::string runLogLine(const UsageMetrics& session, SessionCloseReason closeReason,
                                Timestamp closedAt, std::optional<bool> processAlive,
                                std::optional<std::int64_t> sessionFileAgeSeconds,
                                LidState lidState);

  ///@{
  /// Figures over all recorded days, computed on every call.
  double totalProtectedSeconds() const;
  double totalKeptAwakeSeconds() const;
  double totalManualSeconds() const;
  double totalPluggedInUnlimitedSeconds() const;
  std::int64_t totalSessionsSaved() const;
  std::int64_t totalWorkSessions() const;
  /// Days with a closed session or with time kept awake for an agent.
  std::int64_t activeDays() const;
  /// The share of saved sessions among all closed ones, 0 to 1; absent without sessions.
  std::optional<double> utilization() const;
  std::map<std::string, double> protectedSecondsByAgent() const;
  std::map<std::string, std::int64_t> sessionsByAgent() const;
  ///@}

  /// A day of recentDays().
  struct RecentDay {
    std::string dayKey;  ///< as of UsageMetrics::dayKey()
    DayBucket bucket;    ///< all 0 if nothing was recorded
    friend bool operator==(const RecentDay&, const RecentDay&) = default;
  };
  /// The `count` calendar days up to the local day of `endingAt`, oldest first. Days before
  /// the year 0000 are left out; a count of 0 or less gives none.
  std::vector<RecentDay> recentDays(std::int64_t count, Timestamp endingAt) const;

  friend bool operator==(const UsageMetrics&, const UsageMetrics&) = default;

 private:
  void closeSession(Timestamp now, SessionCloseReason reason);
};
template <>
inline constexpr auto json::fields<UsageMetrics> = std::tuple{
    json::optional("days", &UsageMetrics::days),
    json::required("installDate", &UsageMetrics::installDate),
    json::optional("longestProtectedRunSeconds", &UsageMetrics::longestProtectedRunSeconds),
    json::optional("longestProtectedRunAgent", &UsageMetrics::longestProtectedRunAgent),
    json::optional("longestProtectedRunDate", &UsageMetrics::longestProtectedRunDate),
    json::optional("sessionStartedAt", &UsageMetrics::sessionStartedAt),
    json::optional("sessionQualified", &UsageMetrics::sessionQualified),
    json::optional("sessionAgentID", &UsageMetrics::sessionAgentID),
    json::optional("sessionRunSeconds", &UsageMetrics::sessionRunSeconds),
    json::optional("lastTickAt", &UsageMetrics::lastTickAt),
    json::optional("lastActiveSignalAt", &UsageMetrics::lastActiveSignalAt),
    json::optional("wakeGapTicksDropped", &UsageMetrics::wakeGapTicksDropped),
    json::optional("lastRun", &UsageMetrics::lastRun),
    json::optional("lastCloseReason", &UsageMetrics::lastCloseReason),
    json::optional("sessionProtectedSeconds", &UsageMetrics::sessionProtectedSeconds),
    json::optional("sessionKeptAwakeSeconds", &UsageMetrics::sessionKeptAwakeSeconds),
};

}  // namespace wakelatch
#pragma GCC visibility pop
