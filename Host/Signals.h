// Signals from the terminal and the system, as calls on a thread that does nothing else.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <thread>

#include "Platform/Descriptor.h"
#include "Platform/Mutex.h"

namespace wakelatch::host {

/// Takes over SIGINT, SIGTERM, SIGHUP (stop), SIGTSTP and SIGWINCH for the rest of the process.
/// What the process was started to ignore (`nohup`) stays ignored. So is SIGPIPE, because a reader
/// that went away must not end the process before it has restored sleep, and SIGTTOU, so that a
/// watch in the background is not stopped for what it prints. A process has one of these, made
/// early and from the main thread.
class Signals {
 public:
  /// All called on the thread of listen(), one after another; a signal that comes meanwhile waits.
  struct Handlers {
    /// The `count`th request to stop, counted from 1. Signals within half a second count as one:
    /// some senders address a process and then its group, or send two kinds.
    std::function<void(int number, int count)> stop;
    /// suspend() is called before the process stops itself for a SIGTSTP, resume() when it goes on.
    /// A suspend() that takes long has to ask isStopPending() meanwhile: a request to stop calls
    /// the suspension off, and resume() is called at once. Neither is called after a request to
    /// stop.
    std::function<void()> suspend, resume;
    std::function<void()> resized;
    /// Every few seconds.
    std::function<void()> pulse;
  };

  Signals();
  ~Signals() { endListening(); }
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Starts the thread; signals that came since the construction are delivered first. Call once.
  void listen(Handlers handlers);

  /// Whether a request to stop waits to be delivered. From any thread.
  static bool isStopPending();

  /// Waits for a handler that runs. After this no handler is called and the signals have their
  /// default effect, so call it once nothing is left to be undone.
  void endListening();

  /// Ends the process with this status after so many seconds, whatever hangs. From any thread; a
  /// later call replaces an earlier one.
  void exitIn(double seconds, int status);

 private:
  void run();
  /// Milliseconds for poll() until the exit or the next pulse. Ends the process when it is due.
  int untilExit();

  struct Exit {
    std::chrono::steady_clock::time_point at;
    int status = 0;
  };

  Handlers handlers_;
  platform::Mutex mutex_;
  std::optional<Exit> exit_ WAKELATCH_GUARDED_BY(mutex_);
  std::thread thread_;
};

}  // namespace wakelatch::host
