// Asks to stop, from the terminal or the system.
#pragma once

namespace wakelatch::host {

/// Takes over SIGINT, SIGTERM and SIGHUP for the rest of the process: the first one asks the host
/// to leave, a second one ends the process at once with status 128 plus its number. The same one
/// again within half a second counts as one: some senders address a process and then its group.
/// What the process was started to ignore (`nohup`) stays ignored. So is SIGPIPE: a reader that
/// went away must not end the process before it has restored sleep. Make one, early, from the main
/// thread.
class StopSignals {
 public:
  StopSignals();

  bool isStopRequested() const;
  /// Waits until a stop is requested or `seconds` have passed; true when one is.
  bool waitFor(double seconds) const;
};

}  // namespace wakelatch::host
