// A lid-closed keep-awake outlasts the work by a while, so that the next task finds the machine
// awake.
#pragma once

#include <optional>

#include "Platform/Clock.h"
#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {

/// Keeps the time since which a release is pending, as SleepReleasePolicy wants it kept.
class ReleaseHold {
 public:
  /// @param delaySeconds  how long a lid-closed keep-awake outlasts the work
  explicit ReleaseHold(double delaySeconds) : delaySeconds_(delaySeconds) {}

  /// Whether the release that this status asks for has to wait.
  bool holds(GuardStatus status, bool isLidClosedEngaged, Timestamp now) {
    if (pendingSince_ > now) pendingSince_ = now;  // the clock was set back
    const auto plan = SleepReleasePolicy::planRelease(status, isLidClosedEngaged, pendingSince_,
                                                      now, delaySeconds_);
    pendingSince_ = plan.isHold() ? std::optional(plan.pendingSince) : std::nullopt;
    return plan.isHold();
  }
  /// Nothing is pending any more.
  void forget() { pendingSince_.reset(); }

  std::optional<Timestamp> dueAt() const {
    if (!pendingSince_) return std::nullopt;
    return after(*pendingSince_, delaySeconds_);
  }

 private:
  const double delaySeconds_;
  std::optional<Timestamp> pendingSince_;
};

}  // namespace wakelatch::host
