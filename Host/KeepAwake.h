// Carries decisions out: starts and stops the keep-awake tool, changes the lid-closed setting and
// puts the machine to sleep, in the order that is safe.
#pragma once

#include <functional>
#include <optional>

#include "Host/KeepAwakeTool.h"
#include "Host/LidClosedSetting.h"
#include "Host/Notices.h"
#include "Host/ReleaseHold.h"
#include "Host/WatchState.h"
#include "Platform/Clock.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// Whether the lid was moved between two readings; false when one of them failed.
constexpr bool hasMoved(LidState before, LidState now) {
  return before != now && before != LidState::unknown && now != LidState::unknown;
}

/// What one tick wants of the machine.
struct Wish {
  GuardDecision decision;
  bool isDanger = false;  ///< battery or heat: let go at once, even while a prompt is open
  bool keepAwakeWithLidClosed = false;
  bool letDisplaySleep = false;
  LidState lidState = LidState::unknown;
  bool isToolEnded = false;  ///< by an interruption: no failure of the tool
  Timestamp at;              ///< when it is carried out

  /// Takes over the request to sleep of an older wish that was not carried out, since a decision
  /// asks for sleep only once. Not when this wish wants the machine awake or somebody has moved the
  /// lid.
  void supersede(const Wish& older) {
    if (older.decision.shouldSleepNow && !decision.shouldPreventSleep &&
        !hasMoved(older.lidState, lidState)) {
      decision.shouldSleepNow = true;
    }
  }
};

/// The wish for this decision.
Wish makeWish(const GuardDecision& decision, const GuardSettings& settings,
              const PowerSnapshot& power, LidState lidState, ThermalState thermalState,
              Timestamp now);

/// Everything that acts on the machine. Calls come from one thread at a time and block as long as
/// the controller's do, an open administrator prompt included; cancelling the controller's runners
/// ends that.
class KeepAwake {
 public:
  /// While danger goes on, sleep and a restore without prompt are tried again after this long.
  static constexpr double dangerPauseSeconds = 60;
  /// A sleep that was refused, for another program's lock say, is asked for again after this long.
  static constexpr double refusedSleepPauseSeconds = 60;
  /// With the lid open, a refused sleep is given up after this long: somebody may have come back to
  /// the machine.
  static constexpr double refusedSleepPatienceSeconds = 600;

  struct Hooks : LidClosedSetting::Hooks {
    /// Whether no newer wish has come. Work may have begun while a prompt was open.
    std::function<bool()> isNewest;
    /// Called after the tool was started, before the lid-closed setting is changed, which may take
    /// longer.
    std::function<void()> toolSettled = {};
  };

  /// @param controller, notifier  owned by the caller
  /// @param releaseDelaySeconds   how long a lid-closed keep-awake outlasts the work
  /// @param toolGivesWord         see KeepAwakeTool
  KeepAwake(SleepController& controller, Notifier& notifier, double releaseDelaySeconds,
            bool toolGivesWord, Hooks hooks);

  /// Ends the keep-awake tools of an earlier run. To be called first.
  void endOrphans() { controller_.reconcileOrphanedCaffeinate(); }
  /// Restores the lid-closed setting of an earlier run. To be called before apply(). May prompt.
  void startUp() { lidClosed_.startUp(); }

  /// Does what is wanted now. May prompt.
  void apply(const Wish& wish);

  /// Stops the tool and restores the lid-closed setting if that needs no prompt. Returns whether
  /// nothing stays engaged.
  bool letGo();

  /// As letGo(), then prompts if the setting is still engaged. Returns whether nothing stays
  /// engaged.
  bool restore();

  /// Stops the tool, leaves an engaged setting as it is and tells the user so.
  void leaveEngaged();

  /// What holds the machine awake. Held::since and Held::prompt are left for the caller to fill in.
  Held held() const;

 private:
  /// A sleep that was asked for and has not come about.
  struct PendingSleep {
    LidState lidState;  ///< when it was asked for
    std::optional<Timestamp> refusedSince = {};
    Timestamp triedAt = {};  ///< last, when it was refused
  };

  void wantTool(const Wish& wish);
  void prevent(const Wish& wish);
  void escape(const Wish& wish);
  void release(const Wish& wish);
  void sleepIfAskedFor(const Wish& wish);

  SleepController& controller_;
  Notifier& notifier_;
  const Hooks hooks_;
  KeepAwakeTool tool_;
  LidClosedSetting lidClosed_;
  ReleaseHold hold_;
  std::optional<PendingSleep> pendingSleep_;
  bool isLidClosedWanted_ = false;
  /// When, during the present danger, sleep was last asked for and a restore last tried.
  std::optional<Timestamp> dangerSleepAt_, dangerRestoreAt_;
};

}  // namespace wakelatch::host
