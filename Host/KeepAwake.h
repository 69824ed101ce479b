// Carries the decisions out through the sleep controller, with the patience that a person at the
// machine expects: no password prompt on every tick, no storm of restarts.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "Platform/Clock.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

/// What the host does with a decision. All calls come from the tick's thread; they block as long as
/// the controller's do, an administrator prompt included.
class KeepAwake {
 public:
  /// Receives what the user should know, one sentence at a time.
  using Notice = std::function<void(const std::string&)>;

  /// A refused administrator prompt is not shown again for this long.
  static constexpr double promptPauseSeconds = 15 * 60;
  /// A keep-awake tool that ends this soon after its start cannot work here...
  static constexpr double earlyEndSeconds = 1;
  /// ...and is started again after this long.
  static constexpr double toolPauseSeconds = 60;

  /// @param controller           owned by the caller
  /// @param releaseDelaySeconds  how long a lid-closed keep-awake outlasts the work
  KeepAwake(SleepController& controller, double releaseDelaySeconds, Notice notice);

  /// Undoes what an earlier run left behind. Before the first apply().
  void startUp(Timestamp now);

  /// A release waits for its delay only while the machine is not critically hot.
  void apply(const GuardDecision& decision, const GuardSettings& settings, LidState lidState,
             ThermalState thermalState, Timestamp now);

  /// The tool was started and has not been seen alive for earlyEndSeconds yet: checkTool() is due.
  bool isToolNew() const { return toolStartedAt_.has_value(); }
  /// Notices a tool that ended right after its start.
  void checkTool();

  /// Restores normal sleep; false when the lid-closed setting may still be engaged.
  bool restore();

  /// When a lid-closed keep-awake that outlasts its work is released.
  std::optional<Timestamp> releaseDueAt() const;

 private:
  /// Remembers that a prompt was refused.
  class Prompt {
   public:
    bool mayAsk(Timestamp now) const;
    void refused(Timestamp now) { refusedAt_ = now; }
    void forget() { refusedAt_.reset(); }

   private:
    std::optional<Timestamp> refusedAt_;
  };

  using SteadyTime = std::chrono::steady_clock::time_point;

  void enable(const GuardSettings& settings, Timestamp now);
  void release(Timestamp now);
  void noteRestore(bool restored, Timestamp now);
  bool isToolRunning() const { return controller_.appliedLetDisplaySleep().has_value(); }

  SleepController& controller_;
  const double releaseDelaySeconds_;
  const Notice notice_;
  Prompt engagePrompt_;
  Prompt restorePrompt_;
  std::optional<Timestamp> releasePendingSince_;
  std::optional<LidState> sleepWhenReleased_;  ///< the lid when sleep was asked for
  std::optional<SteadyTime> toolStartedAt_;
  std::optional<SteadyTime> toolPausedSince_;
  bool launchFailureNoticed_ = false;
  bool engageFailureNoticed_ = false;
};

}  // namespace wakelatch::host
