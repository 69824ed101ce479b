#include "Host/UsageRecorder.h"

#include <algorithm>
#include <utility>

namespace wakelatch::host {
namespace {

/// A copy for the log line. The days, which may be years of them, are not copied.
UsageMetrics copyWithoutDays(UsageMetrics& metrics) {
  auto days = std::exchange(metrics.days, {});
  UsageMetrics copy = metrics;
  metrics.days = std::move(days);
  return copy;
}

}  // namespace

KeepAwakeTrigger keepAwakeTrigger(const GuardDecision& decision, AppMode mode) {
  switch (decision.status) {
    case GuardStatus::keepingAwake:  // the manual mode never looks at signals
      return mode == AppMode::manualKeepAwake ? KeepAwakeTrigger::manual
                                              : KeepAwakeTrigger::activeSignal;
    case GuardStatus::pluggedInUnlimited:
      return KeepAwakeTrigger::pluggedInUnlimited;
    case GuardStatus::idleGrace:
      return KeepAwakeTrigger::idleGrace;
    case GuardStatus::off:
    case GuardStatus::watching:  // also while the release of a lid-closed keep-awake is held
    case GuardStatus::batterySafety:
    case GuardStatus::thermalSafety:
      break;
  }
  return KeepAwakeTrigger::none;
}

UsageRecorder::UsageRecorder(FileLogger& logger, UsageMetrics metrics)
    : logger_(logger), metrics_(std::move(metrics)) {}

bool UsageRecorder::record(const UsageTick& tick) {
  const Circumstances current{sessionProcessAlive(tick.signals), tick.lidState};
  std::optional<UsageMetrics> session;
  if (metrics_.sessionStartedAt) session = copyWithoutDays(metrics_);

  metrics_ = UsageMetrics::recording(
      std::move(metrics_), tick.preventsSleep, keepAwakeTrigger(tick.decision, tick.mode),
      tick.strongest.strength, tick.lidState,
      isActive(tick.strongest.strength) ? tick.strongest.appName : std::nullopt,
      tick.settings.profile(tick.power).idleGracePeriodSeconds, current.processAlive, tick.now);

  const bool closed = session && !metrics_.sessionStartedAt;
  if (closed) logClosed(*session, current, tick);
  previous_ = current;

  const double sinceSaved = savedAt_ ? secondsBetween(*savedAt_, tick.now) : 0;
  const bool isDue = closed || sinceSaved >= saveIntervalSeconds || sinceSaved < 0;  // set back
  if (isDue || !savedAt_) savedAt_ = tick.now;
  return isDue;
}

/// Whether the process of the open session's agent lives, as far as is known.
///
/// That a process is not listed says nothing by itself: agents that show in web pages or windows
/// alone have none to list, and a failed listing leaves out every agent, with or without a signal
/// of its own. So an agent counts as gone only when its process was seen in this session, which
/// shows that it can be, and is then missing twice in a row, which one failed listing is not.
std::optional<bool> UsageRecorder::sessionProcessAlive(const std::vector<ActivitySignal>& signals) {
  if (!metrics_.sessionStartedAt || !metrics_.sessionAgentID) {
    ticksUnlisted_.reset();
    return std::nullopt;
  }
  const bool listed =
      std::any_of(signals.begin(), signals.end(), [this](const ActivitySignal& signal) {
        return signal.appName == metrics_.sessionAgentID && signal.processPresent == true;
      });
  if (listed) {
    ticksUnlisted_ = 0;
    return true;
  }
  if (!ticksUnlisted_) return std::nullopt;
  return ++*ticksUnlisted_ >= 2 ? std::optional(false) : std::nullopt;
}

/// An interrupted session is dated at the tick before, so the rest of its line is of then, too.
void UsageRecorder::logClosed(const UsageMetrics& session, const Circumstances& current,
                              const UsageTick& tick) {
  const SessionCloseReason reason = metrics_.lastCloseReason.value_or(SessionCloseReason::idle);
  const bool interrupted = reason == SessionCloseReason::interrupted;
  const Circumstances& then = interrupted ? previous_ : current;
  const Timestamp closedAt = interrupted ? session.lastTickAt.value_or(tick.now) : tick.now;
  std::optional<std::int64_t> fileAge;
  const auto agent = tick.agents.find(session.sessionAgentID.value_or(""));
  if (agent != tick.agents.end() && agent->second.newestSessionFile) {
    fileAge = static_cast<std::int64_t>(
        std::max(0.0, secondsBetween(*agent->second.newestSessionFile, closedAt)));
  }
  logger_.log(UsageMetrics::runLogLine(session, reason, closedAt, then.processAlive, fileAge,
                                       then.lidState));
}

}  // namespace wakelatch::host
