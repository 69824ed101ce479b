// The keep-awake tool: started when wanted, not believed before it has shown that it works here: by
// its word, where it gives one, else by having run for a while.
#pragma once

#include <optional>
#include <string>

#include "Host/Notices.h"
#include "Platform/Clock.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

/// Calls come from one thread at a time and block for as long as the controller's do, without any
/// prompt.
class KeepAwakeTool {
 public:
  /// A tool that gives no word and cannot work here has ended by then.
  static constexpr double provenSeconds = 15;
  /// One that has run for so long ends the row of failures of which the user is told once.
  static constexpr double soundSeconds = 600;
  /// One that ended before it was proven is started again after this long.
  static constexpr double pauseSeconds = 60;
  /// One that gave its word and ended sooner than this is given a rest as long.
  static constexpr double shortestPauseSeconds = 1;

  /// @param controller, notifier  owned by the caller
  /// @param givesWord             a tool that has started holds the machine awake, by its word: it
  ///                              is proven at once, and started again without a pause
  KeepAwakeTool(SleepController& controller, Notifier& notifier, bool givesWord)
      : controller_(controller),
        notifier_(notifier),
        provenSeconds_(givesWord ? 0 : provenSeconds) {}

  /// Starts the tool unless it runs or is paused after a failure.
  void want(bool letDisplaySleep, Timestamp now);
  /// Stops it. Whoever has ended it meanwhile, that is no failure any more.
  void stop();
  /// Notices that it has ended by itself.
  void look(Timestamp now);

  /// Tells problem(), if there is one.
  void tellProblem();
  /// Why the tool that is wanted does not run, or what the one that runs does not do.
  std::optional<std::string> problem() const;

  bool isWanted() const { return isWanted_; }
  bool isRunning() const { return controller_.appliedLetDisplaySleep().has_value(); }
  /// It runs, and this one or one before it has run for `provenSeconds` without a failure since.
  bool isProven() const { return isTrusted_ && isRunning(); }

 private:
  SleepController& controller_;
  Notifier& notifier_;
  const double provenSeconds_;
  bool isWanted_ = false, isTrusted_ = false;
  std::optional<Timestamp> startedAt_;    ///< of the one that runs or has ended unnoticed
  std::optional<Timestamp> pausedSince_;  ///< by the last failure
};

}  // namespace wakelatch::host
