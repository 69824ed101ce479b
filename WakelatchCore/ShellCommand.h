// Running a system tool: what to run, what came of it, and the interface that every component with
// a tool takes, so that a scripted runner can stand in.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#pragma GCC visibility push(default)
namespace wakelatch {

/// A program and its arguments, passed as they are: no shell, no quoting.
struct ShellCommand {
  std::string executable;              ///< absolute path
  std::vector<std::string> arguments;  ///< without the program's own name

  friend bool operator==(const ShellCommand&, const ShellCommand&) = default;
};

/// What a finished program left behind.
struct CommandResult {
  /// Stands for an exit code that the system has discarded.
  static constexpr std::int32_t unknownExitCode = -1;

  std::int32_t exitCode = 0;   ///< the exit status; for a child ended by a signal, its number
  std::string standardOutput;  ///< empty when it was not valid UTF-8
  std::string standardError;   ///< empty when it was not valid UTF-8

  /// Whether the program is known to have exited with 0.
  bool succeeded() const { return exitCode == 0; }

  friend bool operator==(const CommandResult&, const CommandResult&) = default;
};

/// A run that ended with another status than 0, with all that it printed. what() names the exit
/// code and the first line of standard error.
class CommandRunnerError : public std::runtime_error {
 public:
  /// @param result  of a run that did not succeed
  /// @param signal  the one that ended the program, if one did
  static CommandRunnerError nonZeroExit(CommandResult result,
                                        std::optional<std::int32_t> signal = std::nullopt) {
    return CommandRunnerError(std::move(result), signal);
  }
  /// The result of the run, with all that it printed.
  const CommandResult& result() const { return result_; }
  /// The signal that ended the program: tells SIGTERM from an exit with 15. Absent for a program
  /// that exited, and when the runner does not know.
  std::optional<std::int32_t> signal() const { return signal_; }

 private:
  CommandRunnerError(CommandResult result, std::optional<std::int32_t> signal);
  CommandResult result_;
  std::optional<std::int32_t> signal_;
};

/// Runs commands. Implementations say on which threads they may be called.
class CommandRunning {
 public:
  virtual ~CommandRunning() = default;

  /// Runs the command to its end and returns its result when it exits with 0. Throws
  /// CommandRunnerError::nonZeroExit for any other status, and another std::exception when the
  /// program cannot be started or prints more than the runner takes, which names path and cause.
  /// Blocks; logs nothing.
  virtual CommandResult run(const ShellCommand& command) = 0;
};

/// Runs commands as child processes. A child inherits environment, working directory and standard
/// input; signals that the host blocks or ignores reach it all the same.
class ProcessCommandRunner : public CommandRunning {
 public:
  /// @param timeoutSeconds  how long a child may run. One that runs longer is sent SIGTERM, 0.2
  ///                        seconds later SIGINT, 2 seconds later SIGKILL. 0 or less: at once.
  explicit ProcessCommandRunner(double timeoutSeconds);

  /// Safe from several threads at once. Blocks until the child has exited. Output is what the child
  /// has written by then: a program that the child has started, and that may write on, is not
  /// waited for. A child that writes more than 16 MiB to one stream is ended as after its time-out,
  /// and std::runtime_error names it and the bound.
  CommandResult run(const ShellCommand& command) override;

 private:
  const double timeoutSeconds_;
};

/// Runs commands as ProcessCommandRunner does, until somebody cannot wait for them any longer: a
/// prompt that nobody answers, a tool that hangs.
class CancellableCommandRunner : public CommandRunning {
 public:
  /// @param timeoutSeconds  how long a child may run before it is sent SIGTERM, 0.2 seconds later
  ///                        SIGINT and 2 seconds later SIGKILL. 0 or less: at once.
  explicit CancellableCommandRunner(double timeoutSeconds);

  /// Safe from several threads at once. A run that is cancelled ends as one whose time is over, at
  /// the latest 2.3 seconds later, and returns normally when its program was done in that instant.
  /// Throws std::runtime_error for a run that would begin while cancelled.
  CommandResult run(const ShellCommand& command) override;

  /// Ends the runs under way and lets no other begin until allow(). From any thread; does not wait
  /// for them.
  void cancel() { cancelled_ = true; }
  /// Runs may begin again. From any thread.
  void allow() { cancelled_ = false; }
  /// Whether no run may begin. From any thread.
  bool isCancelled() const { return cancelled_; }

 private:
  const double timeoutSeconds_;
  std::atomic<bool> cancelled_{false};
};

}  // namespace wakelatch
#pragma GCC visibility pop
