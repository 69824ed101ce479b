// One way to start, watch and stop child processes. Children are spawned, never forked: the cost
// does not grow with the memory of the host.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/ExitNotice.h"

namespace wakelatch::platform {

/// Why a program could not be started: "cannot start /bin/x: No such file or directory".
class LaunchError : public std::system_error {
 public:
  LaunchError(std::error_code cause, const std::string& executable)
      : std::system_error(cause, "cannot start " + executable) {}
};

/// Where a child's standard output and standard error go.
enum class ChildOutput {
  inherited,  ///< where the host's own go
  captured,   ///< into pipes that awaitExit() empties
};

/// How much of a captured stream is kept: far more than any tool has to tell.
inline constexpr std::size_t maxCapturedBytes = 16U << 20;

/// How a child ended, and with what.
struct ChildEnd {
  /// `unknown`: the system has discarded it because the process ignores SIGCHLD or has reaped the
  /// child elsewhere.
  enum class Kind { exited, signalled, unknown };

  Kind kind = Kind::unknown;
  std::int32_t number = -1;  ///< the exit status or the signal; -1 when unknown

  friend bool operator==(const ChildEnd&, const ChildEnd&) = default;
};

/// The end of a wait of `seconds` that begins now; clamped to between 0 and some thirty years,
/// which the clock can still count.
std::chrono::steady_clock::time_point deadlineIn(double seconds);

/// A running child, or one that has exited and is not reaped yet. Not for use by several threads at
/// once.
class ChildProcess {
 public:
  /// Starts the program at the path `executable`; arguments are passed as they are. The child
  /// inherits environment, working directory and standard input, and no descriptor beyond the
  /// standard streams. It starts with no signal blocked or ignored and in a process group of its
  /// own, so that a Ctrl-C meant for the host does not reach it. Throws LaunchError.
  ChildProcess(const std::string& executable, const std::vector<std::string>& arguments,
               ChildOutput output);
  /// Kills and reaps a child that was not reaped.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  std::int32_t id() const { return id_; }

  /// Waits until the child has exited, at most `seconds` (0 or less: looks once), and collects
  /// captured output meanwhile. At the exit it collects what the pipes hold and no more, whoever
  /// else may keep them open. Returns whether the child has exited; it is left to be reaped. The
  /// wait in which hasFlooded() becomes true ends at once, so that the child can be stopped; so
  /// does every wait, with `untilLine`, once standardOutput() holds a whole line.
  bool awaitExit(double seconds, bool untilLine = false);

  /// Whether more than maxCapturedBytes came in a stream. The rest is read and dropped.
  bool hasFlooded() const { return standardOutput_.isFlooded || standardError_.isFlooded; }

  /// Sends a signal, unless the child has been reaped.
  void send(int signal) const;

  /// Waits for the exit and frees the child's id. Call once.
  ChildEnd reap();

  /// What awaitExit() has collected so far.
  const std::string& standardOutput() const { return standardOutput_.text; }
  /// Moves the collected text out; standardOutput() is empty afterwards.
  std::string takeStandardOutput() { return std::move(standardOutput_.text); }
  std::string takeStandardError() { return std::move(standardError_.text); }

 private:
  struct Capture {
    Descriptor pipe;  ///< closed at the end of file
    std::string text;
    bool isFlooded = false;

    /// Reads once, which blocks unless poll() has reported something; 0 at the end of the file.
    std::size_t read(std::size_t limit = SIZE_MAX);
    void readWhatIsThere();
  };

  bool exitedUnnoticed() const;

  Capture standardOutput_, standardError_;
  const std::int32_t id_;
  const ExitNotice notice_;
  bool reaped_ = false;
};

/// One step of stopping a child: a signal, and how long to wait for the exit then.
struct StopStep {
  int signal;
  double limitSeconds;
};

/// Walks the steps until the child has exited; false when it outlived them all. `Child` is a
/// ChildProcess or a WatchedChild.
template <class Child>
bool stop(Child& child, std::span<const StopStep> steps) {
  for (const StopStep& step : steps) {
    child.send(step.signal);
    if (child.awaitExit(step.limitSeconds)) return true;
  }
  return false;
}

}  // namespace wakelatch::platform
