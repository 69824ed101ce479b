// Carries decisions out: which of tool, lid-closed setting and sleep a wish of the deciding side
// comes to, and in which order.
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

/// Whether somebody has moved the lid; a reading that failed does not say so.
constexpr bool hasMoved(LidState before, LidState now) {
  return before != now && before != LidState::unknown && now != LidState::unknown;
}

/// What one tick wants of the machine.
struct Wish {
  GuardDecision decision;
  bool isDanger = false;  ///< battery or heat: let go at once, whoever is being asked
  bool keepAwakeWithLidClosed = false;
  bool letDisplaySleep = false;
  LidState lidState = LidState::unknown;
  bool isToolEnded = false;  ///< told to end while something was waited for: no failure of its own
  Timestamp at;              ///< when it is carried out; never goes back but with the clock

  /// Takes over what an older wish asked for once and nobody has carried out: going to sleep, as
  /// long as the newer one does not want the machine awake and nobody has moved the lid.
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
  /// Danger that goes on is answered again after this long: with sleep, and with a restore that
  /// needs no prompt.
  static constexpr double dangerPauseSeconds = 60;
  /// A sleep that was refused, for another program's lock say, is asked for again after this long.
  static constexpr double refusedSleepPauseSeconds = 60;
  /// With the lid open somebody may have come back to the machine: no longer than this.
  static constexpr double refusedSleepPatienceSeconds = 600;

  struct Hooks : LidClosedSetting::Hooks {
    /// Whether nothing newer is wanted. A prompt takes long: work may have begun meanwhile.
    std::function<bool()> isNewest;
    /// Told when the tool was seen to and the lid-closed setting, which may take longer, is next.
    std::function<void()> toolSettled = {};
  };

  /// @param controller, notifier  owned by the caller
  /// @param releaseDelaySeconds   how long a lid-closed keep-awake outlasts the work
  /// @param toolGivesWord         see KeepAwakeTool
  KeepAwake(SleepController& controller, Notifier& notifier, double releaseDelaySeconds,
            bool toolGivesWord, Hooks hooks);

  /// Ends the keep-awake tools of an earlier run. Before all others.
  void endOrphans() { controller_.reconcileOrphanedCaffeinate(); }
  /// Restores the lid-closed setting of an earlier run. Before apply(). May prompt.
  void startUp() { lidClosed_.startUp(); }

  /// Does what is wanted now. May prompt.
  void apply(const Wish& wish);

  /// Lets the machine sleep as far as that goes without asking anybody; true when nothing stays
  /// engaged.
  bool letGo();

  /// Lets go, and asks where that is not enough. True when nothing stays engaged.
  bool restore();

  /// Stops the tool and leaves an engaged setting as it is, with a word about it.
  void leaveEngaged();

  /// What holds the machine awake; since when, and behind which prompt, is the caller's to know.
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
  /// Of the last sleep that was asked for and the last restore tried, in a danger that goes on.
  std::optional<Timestamp> dangerSleepAt_, dangerRestoreAt_;
};

}  // namespace wakelatch::host
