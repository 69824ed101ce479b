// Runs system tools: the command, its result, and the interface through which all components run
// their tools, so that tests can replace the tools.
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

/// Exit status and output of a finished program.
struct CommandResult {
  /// The exit code when the system has discarded it.
  static constexpr std::int32_t unknownExitCode = -1;

  std::int32_t exitCode = 0;   ///< exit status, or the number of the signal that ended the program
  std::string standardOutput;  ///< empty if it is not valid UTF-8
  std::string standardError;   ///< empty if it is not valid UTF-8

  /// Whether the program is known to have exited with 0.
  bool succeeded() const { return exitCode == 0; }

  friend bool operator==(const CommandResult&, const CommandResult&) = default;
};

/// The error of a run whose exit code is not 0. what() gives the exit code and the first line of
/// standard error.
class CommandRunnerError : public std::runtime_error {
 public:
  /// Makes the error; does not throw it.
  /// @param result  the result of a run that did not succeed
  /// @param signal  the signal that ended the program, if one did
  static CommandRunnerError nonZeroExit(CommandResult result,
                                        std::optional<std::int32_t> signal = std::nullopt) {
    return CommandRunnerError(std::move(result), signal);
  }
  /// The result of the run, with its output.
  const CommandResult& result() const { return result_; }
  /// The signal that ended the program; distinguishes SIGTERM from an exit with 15. Absent if the
  /// program exited, or if the runner does not know.
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

  /// Runs the command to its end and returns its result if it exits with 0. Otherwise throws
  /// CommandRunnerError::nonZeroExit. If the program cannot be started, or prints more than the
  /// runner takes, throws another std::exception, whose text names the program and the cause.
  /// Blocks; logs nothing.
  virtual CommandResult run(const ShellCommand& command) = 0;
};

/// Runs commands as child processes. A child inherits environment, working directory and standard
/// input, but not the host's blocked and ignored signals.
class ProcessCommandRunner : public CommandRunning {
 public:
  /// @param timeoutSeconds  how long a child may run. A child that runs longer is sent SIGTERM, 0.2
  ///                        seconds later SIGINT, 2 seconds later SIGKILL. 0 or less: at once.
  explicit ProcessCommandRunner(double timeoutSeconds);

  /// Callable from several threads at once. Blocks until the child has exited. The output is what
  /// was written until then; programs that the child has started are not waited for. A child that
  /// writes more than 16 MiB to one stream is ended as after its time-out, and std::runtime_error
  /// names it and the limit.
  CommandResult run(const ShellCommand& command) override;

 private:
  const double timeoutSeconds_;
};

/// Runs commands as ProcessCommandRunner does, and can cancel them: a prompt that nobody answers, a
/// tool that hangs.
class CancellableCommandRunner : public CommandRunning {
 public:
  /// @param timeoutSeconds  how long a child may run before it is sent SIGTERM, 0.2 seconds later
  ///                        SIGINT and 2 seconds later SIGKILL. 0 or less: at once.
  explicit CancellableCommandRunner(double timeoutSeconds);

  /// Callable from several threads at once. A cancelled run ends like one whose time is over, at
  /// most 2.3 seconds later; it returns normally if its program exits with 0 meanwhile. A run that
  /// would begin while cancelled throws std::runtime_error.
  CommandResult run(const ShellCommand& command) override;

  /// Cancels all runs, and refuses new ones until allow(). From any thread; does not block.
  void cancel() { cancelled_ = true; }
  /// Allows runs again after cancel(). From any thread.
  void allow() { cancelled_ = false; }
  /// Whether runs are refused. From any thread.
  bool isCancelled() const { return cancelled_; }

 private:
  const double timeoutSeconds_;
  std::atomic<bool> cancelled_{false};
};

}  // namespace wakelatch
#pragma GCC visibility pop
