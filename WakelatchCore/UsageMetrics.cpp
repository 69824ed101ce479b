#include "WakelatchCore/UsageMetrics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

#include "Platform/Calendar.h"
#include "Platform/Text.h"

namespace wakelatch {
namespace {

std::string keyOf(std::chrono::local_days day) {
  const std::chrono::year_month_day date{day};
  char key[32];
  std::snprintf(key, sizeof key, "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return key;
}

/// From the start of the open session to its last active signal; 0 when none is open.
double workedSeconds(const UsageMetrics& session) {
  if (!session.sessionStartedAt) return 0;
  const Timestamp end = session.lastActiveSignalAt.value_or(*session.sessionStartedAt);
  return std::max(0.0, secondsBetween(*session.sessionStartedAt, end));
}

/// `seconds` without its fraction, in decimal; limited to the range of 64-bit integers.
std::string truncated(double seconds) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (std::isnan(seconds)) return "0";
  if (seconds >= limit) return std::to_string(std::numeric_limits<std::int64_t>::max());
  if (seconds < -limit) return std::to_string(std::numeric_limits<std::int64_t>::min());
  return std::to_string(static_cast<std::int64_t>(seconds));
}

/// The last component of a path-like agent id, shortened and without double quotes.
std::string agentLabel(const std::optional<std::string>& agentID) {
  std::string_view piece = agentID ? std::string_view(*agentID) : "-";
  while (!piece.empty() && piece.back() == '/') piece.remove_suffix(1);
  piece.remove_prefix(piece.rfind('/') + 1);  // npos + 1 is 0
  std::string label(platform::firstCharacters(piece.empty() ? "-" : piece, 64));
  std::replace(label.begin(), label.end(), '"', '\'');
  return label;
}

template <class Value>
Value total(const UsageMetrics& metrics, Value DayBucket::*field) {
  Value sum = 0;
  for (const auto& [key, bucket] : metrics.days) sum += bucket.*field;
  return sum;
}

template <class Value>
std::map<std::string, Value> totalByAgent(const UsageMetrics& metrics,
                                          std::map<std::string, Value> DayBucket::*field) {
  std::map<std::string, Value> sums;
  for (const auto& [key, bucket] : metrics.days) {
    for (const auto& [agent, value] : bucket.*field) sums[agent] += value;
  }
  return sums;
}

}  // namespace

std::string UsageMetrics::dayKey(Timestamp instant) {
  return keyOf(platform::localDay(instant));
}

// ------------------------------------------------------------------------------------ accounting

UsageMetrics UsageMetrics::recording(UsageMetrics metrics, bool effectiveKeepAwake,
                                     KeepAwakeTrigger triggerRung, SignalStrength signalStrength,
                                     LidState lidState, const std::optional<std::string>& agentID,
                                     double idleGracePeriodSeconds,
                                     std::optional<bool> sessionProcessAlive, Timestamp now) {
  // The first tick only sets the time from which the next one counts.
  if (!metrics.lastTickAt) {
    metrics.lastTickAt = now;
    return metrics;
  }
  const Timestamp previousTick = *metrics.lastTickAt;
  const double elapsed = secondsBetween(previousTick, now);
  metrics.lastTickAt = now;

  // An interruption: nothing is known about the time since the previous tick, so the session ends
  // there.
  if (!(elapsed > 0) || elapsed > maxClampedElapsed) {
    if (elapsed > maxClampedElapsed) ++metrics.wakeGapTicksDropped;
    metrics.closeSession(previousTick, SessionCloseReason::interrupted);
    return metrics;
  }

  // Time is booked before a session may open: what is booked while none is open belongs to the next
  // session.
  const std::string key = dayKey(now);
  DayBucket& bucket = metrics.days[key];
  const bool isProtected = effectiveKeepAwake && triggerRung == KeepAwakeTrigger::activeSignal &&
                           lidState == LidState::closed;
  if (isProtected) {
    bucket.protectedSeconds += elapsed;
    metrics.sessionProtectedSeconds += elapsed;
    if (agentID) bucket.protectedSecondsByAgent[*agentID] += elapsed;
    metrics.sessionRunSeconds += elapsed;
    if (metrics.sessionRunSeconds > metrics.longestProtectedRunSeconds) {
      metrics.longestProtectedRunSeconds = metrics.sessionRunSeconds;
      metrics.longestProtectedRunAgent = agentID;
      metrics.longestProtectedRunDate = key;
    }
  } else {
    metrics.sessionRunSeconds = 0;
    if (effectiveKeepAwake) {
      switch (triggerRung) {
        case KeepAwakeTrigger::none:
        case KeepAwakeTrigger::idleGrace:
          break;
        case KeepAwakeTrigger::manual:
          bucket.manualSeconds += elapsed;
          break;
        case KeepAwakeTrigger::pluggedInUnlimited:
          bucket.pluggedInUnlimitedSeconds += elapsed;
          break;
        case KeepAwakeTrigger::activeSignal:
          bucket.keptAwakeSeconds += elapsed;
          metrics.sessionKeptAwakeSeconds += elapsed;
          break;
      }
    }
  }

  // An active signal opens a session or continues it; the session stays with the agent that opened
  // it.
  if (isActive(signalStrength)) {
    metrics.lastActiveSignalAt = now;
    if (!metrics.sessionStartedAt) {
      metrics.sessionStartedAt = now;
      metrics.sessionQualified = false;
      metrics.sessionAgentID = agentID;
    }
    if (isProtected) metrics.sessionQualified = true;
  } else if (metrics.lastActiveSignalAt && metrics.sessionStartedAt) {
    if (secondsBetween(*metrics.lastActiveSignalAt, now) >= idleGracePeriodSeconds) {
      metrics.closeSession(now, SessionCloseReason::idle);
    } else if (sessionProcessAlive == false) {
      metrics.closeSession(now, SessionCloseReason::vanished);
    }
  }
  return metrics;
}

void UsageMetrics::closeSession(Timestamp now, SessionCloseReason reason) {
  if (!sessionStartedAt) return;
  DayBucket& bucket = days[dayKey(now)];
  ++bucket.totalSessions;
  if (sessionQualified) {
    ++bucket.sessionsSaved;
    if (sessionAgentID) ++bucket.sessionsByAgent[*sessionAgentID];
  }
  lastCloseReason = reason;
  if (sessionProtectedSeconds + sessionKeptAwakeSeconds > 0) {
    lastRun = LastRunSummary{.agentDisplayName = sessionAgentID,
                             .endedAt = now,
                             .workedSeconds = workedSeconds(*this),
                             .protectedSeconds = sessionProtectedSeconds,
                             .keptAwakeSeconds = sessionKeptAwakeSeconds,
                             .finishedNormally = reason == SessionCloseReason::idle};
  }
  sessionStartedAt.reset();
  sessionQualified = false;
  sessionAgentID.reset();
  sessionRunSeconds = 0;
  sessionProtectedSeconds = 0;
  sessionKeptAwakeSeconds = 0;
  lastActiveSignalAt.reset();
}

std::string UsageMetrics::runLogLine(const UsageMetrics& session, SessionCloseReason closeReason,
                                     Timestamp closedAt, std::optional<bool> processAlive,
                                     std::optional<std::int64_t> sessionFileAgeSeconds,
                                     LidState lidState) {
  std::string line = "ts=" + platform::iso8601(closedAt);
  line += " agent=\"" + agentLabel(session.sessionAgentID) + "\"";
  line += " started=";
  line += session.sessionStartedAt ? platform::iso8601(*session.sessionStartedAt) : "-";
  line += " worked_s=" + truncated(workedSeconds(session));
  line += " protected_s=" + truncated(session.sessionProtectedSeconds);
  line += " kept_awake_s=" + truncated(session.sessionKeptAwakeSeconds);
  line += " close=";
  line += rawValue(closeReason);
  line += " process_at_close=";
  line += !processAlive ? "unknown" : *processAlive ? "alive" : "gone";
  line += " session_file_age_s=";
  line += sessionFileAgeSeconds ? std::to_string(*sessionFileAgeSeconds) : "-";
  line += " lid=";
  line += rawValue(lidState);
  return line;
}

// ------------------------------------------------------------------------------------ statistics

double UsageMetrics::totalProtectedSeconds() const {
  return total(*this, &DayBucket::protectedSeconds);
}
double UsageMetrics::totalKeptAwakeSeconds() const {
  return total(*this, &DayBucket::keptAwakeSeconds);
}
double UsageMetrics::totalManualSeconds() const {
  return total(*this, &DayBucket::manualSeconds);
}
double UsageMetrics::totalPluggedInUnlimitedSeconds() const {
  return total(*this, &DayBucket::pluggedInUnlimitedSeconds);
}
std::int64_t UsageMetrics::totalSessionsSaved() const {
  return total(*this, &DayBucket::sessionsSaved);
}
std::int64_t UsageMetrics::totalWorkSessions() const {
  return total(*this, &DayBucket::totalSessions);
}

std::int64_t UsageMetrics::activeDays() const {
  return std::count_if(days.begin(), days.end(), [](const auto& entry) {
    const DayBucket& bucket = entry.second;
    return bucket.totalSessions >= 1 || bucket.protectedSeconds > 0 || bucket.keptAwakeSeconds > 0;
  });
}

std::optional<double> UsageMetrics::utilization() const {
  const std::int64_t sessions = totalWorkSessions();
  if (sessions < 1) return std::nullopt;
  return static_cast<double>(totalSessionsSaved()) / static_cast<double>(sessions);
}

std::map<std::string, double> UsageMetrics::protectedSecondsByAgent() const {
  return totalByAgent(*this, &DayBucket::protectedSecondsByAgent);
}
std::map<std::string, std::int64_t> UsageMetrics::sessionsByAgent() const {
  return totalByAgent(*this, &DayBucket::sessionsByAgent);
}

std::vector<UsageMetrics::RecentDay> UsageMetrics::recentDays(std::int64_t count,
                                                              Timestamp endingAt) const {
  const std::chrono::local_days last = platform::localDay(endingAt);
  const std::int64_t formable = (last - platform::firstDay).count() + 1;
  std::vector<RecentDay> recent;
  for (std::int64_t left = std::min(count, formable); left > 0; --left) {
    RecentDay& entry = recent.emplace_back();
    entry.dayKey = keyOf(last - std::chrono::days{left - 1});
    const auto found = days.find(entry.dayKey);
    if (found != days.end()) entry.bucket = found->second;
  }
  return recent;
}

}  // namespace wakelatch
