// Reports what a watch does, at each tick and between ticks: on the terminal, as lines of JSON and
// in the state file. Other threads do the writing; no call waits for them.
#pragma once

#include <deque>
#include <functional>
#include <optional>
#include <string>

#include "Host/CommandLine.h"
#include "Host/Printer.h"
#include "Host/Saver.h"
#include "Host/StatusReport.h"
#include "Host/WatchScreen.h"
#include "Platform/Clock.h"
#include "Platform/Mutex.h"

namespace wakelatch::host {

/// May be used from any thread.
class Teller {
 public:
  /// @param output  a line of JSON a tick; or a screen on a terminal, and a line for each change
  ///                where there is none; or notices alone
  /// @param closed  told once, on another thread, that nobody will read standard output again
  Teller(TickOutput output, std::function<void()> closed);

  /// From now on the state file is kept up to date.
  /// @param saver  owned by the caller, outlives this
  /// @param held   what holds the machine awake; called from any thread, must not block
  void tellStateOf(Saver& saver, std::function<Held()> held);

  void tick(WatchTick tick);
  /// What holds the machine awake has changed since the last tick.
  void heldChanged();
  /// The watch is stopped by Ctrl-Z, or goes on.
  void stopped(bool isStopped);
  /// A sentence for the user.
  void notice(const std::string& text);

  /// The terminal's size or content has changed.
  void redraw();
  /// The screen stays as it is; what follows is written below it.
  void endScreen();

  /// Blocks until everything told so far is written, at most `seconds`. Returns whether it is.
  bool finish(double seconds) { return printer_.finish(seconds); }

 private:
  void draw() WAKELATCH_REQUIRES(mutex_);
  void tellState() WAKELATCH_REQUIRES(mutex_);

  const TickOutput output_;
  Printer printer_;
  platform::Mutex mutex_;
  bool isScreen_ WAKELATCH_GUARDED_BY(mutex_);
  Saver* saver_ WAKELATCH_GUARDED_BY(mutex_) = nullptr;
  std::function<Held()> held_ WAKELATCH_GUARDED_BY(mutex_);  ///< asked last: it may change any time
  std::optional<WatchTick> last_ WAKELATCH_GUARDED_BY(mutex_);
  TickLines lines_ WAKELATCH_GUARDED_BY(mutex_);
  std::deque<std::string> notices_ WAKELATCH_GUARDED_BY(mutex_);  ///< the screen's, with their time
};

}  // namespace wakelatch::host
