// Keeps the keep-awake tool running while it is wanted. A tool is trusted only once it has shown
// that it works on this machine: by its ready line, if it prints one, otherwise by having run for
// a while.
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
  /// A tool that prints no ready line is trusted after this long: one that cannot work here has
  /// ended by then.
  static constexpr double provenSeconds = 15;
  /// Once a tool has run for so long, the next failure is told to the user again.
  static constexpr double soundSeconds = 600;
  /// A tool that ended before it was trusted is started again after this long.
  static constexpr double pauseSeconds = 60;
  /// A tool that was ready but ended sooner than this is started again only after as long a pause.
  static constexpr double shortestPauseSeconds = 1;

  /// @param controller, notifier  owned by the caller
  /// @param givesWord             whether the tool says itself that it holds the machine awake: it
  ///                              is then trusted as soon as it has started, and started again
  ///                              without a pause
  KeepAwakeTool(SleepController& controller, Notifier& notifier, bool givesWord)
      : controller_(controller),
        notifier_(notifier),
        provenSeconds_(givesWord ? 0 : provenSeconds) {}

  /// Starts the tool unless it runs or is paused after a failure.
  void want(bool letDisplaySleep, Timestamp now);
  /// Stops the tool. If it has ended by itself meanwhile, that is not reported.
  void stop();
  /// Notices that it has ended by itself.
  void look(Timestamp now);

  /// Tells problem(), if there is one.
  void tellProblem();
  /// Why the tool that is wanted does not run, or what the one that runs does not do.
  std::optional<std::string> problem() const;

  bool isWanted() const { return isWanted_; }
  bool isRunning() const { return controller_.appliedLetDisplaySleep().has_value(); }
  /// Whether it runs, and it or one before it has run for `provenSeconds` with no failure since.
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
