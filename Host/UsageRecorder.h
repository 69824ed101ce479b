// Advances the usage statistics by one tick of the host at a time.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Host/Observer.h"
#include "Platform/Clock.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/UsageMetrics.h"

namespace wakelatch::host {

/// What one tick saw and did; referred to only while it is recorded.
struct UsageTick {
  AppMode mode;
  const GuardSettings& settings;
  const PowerSnapshot& power;
  LidState lidState;
  const ActivitySignal& strongest;
  const std::vector<ActivitySignal>& signals;       ///< one per agent, merged
  const std::map<std::string, KnownAgent>& agents;  ///< as Observation::agents
  const GuardDecision& decision;
  bool preventsSleep;  ///< sleep prevention is in effect, whatever the decision wanted
  Timestamp now;
};

/// Why the machine stays awake, as the statistics count it.
KeepAwakeTrigger keepAwakeTrigger(const GuardDecision& decision, AppMode mode);

/// Owns the statistics of a running host. Used from the tick's thread; never blocks.
class UsageRecorder {
 public:
  static constexpr double saveIntervalSeconds = 60;

  /// @param logger   owned by the caller; takes a line for every closed session
  /// @param metrics  what was saved before
  UsageRecorder(FileLogger& logger, UsageMetrics metrics);
  UsageRecorder(const UsageRecorder&) = delete;
  UsageRecorder& operator=(const UsageRecorder&) = delete;

  const UsageMetrics& metrics() const { return metrics_; }

  /// Counts one tick. Returns whether the statistics are to be saved now: once a minute, and when a
  /// session has closed. They are to be saved on leaving too, an open session as it is: the next
  /// run's first tick goes on with it, or closes it as interrupted at the last tick of this run.
  bool record(const UsageTick& tick);

 private:
  /// What the log says about the moment a session closed.
  struct Circumstances {
    std::optional<bool> processAlive;
    LidState lidState = LidState::unknown;
  };
  std::optional<bool> sessionProcessAlive(const std::vector<ActivitySignal>& signals);
  void logClosed(const UsageMetrics& session, const Circumstances& current, const UsageTick& tick);

  FileLogger& logger_;
  UsageMetrics metrics_;
  /// Ticks since the process of the open session's agent was last listed; absent: it never was.
  std::optional<int> ticksUnlisted_;
  Circumstances previous_;
  std::optional<Timestamp> savedAt_;  ///< absent: nothing is recorded yet
};

}  // namespace wakelatch::host
