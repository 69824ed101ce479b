// A command runner that plays a script, for components that run system tools.
#pragma once

#include <functional>
#include <mutex>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "WakelatchCore/ShellCommand.h"

namespace wakelatch {

/// Answers each command as the script says and records it. Scripting a command again replaces its
/// answer. Safe from several threads; answers run outside the lock.
class ScriptedRunner : public CommandRunning {
 public:
  using Answer = std::function<CommandResult()>;

  /// An answer that may differ from call to call, block or throw. A result with another status than
  /// 0 is thrown, as every runner does.
  void on(ShellCommand command, Answer answer) {
    const std::lock_guard lock(mutex_);
    script_.insert(script_.begin(), {std::move(command), std::move(answer)});
  }
  /// Success with this output.
  void on(ShellCommand command, std::string standardOutput) {
    on(std::move(command), [output = std::move(standardOutput)] {
      return CommandResult{0, output, ""};
    });
  }
  /// A program that cannot be started.
  void failOn(ShellCommand command, std::string message) {
    on(std::move(command),
       [message = std::move(message)]() -> CommandResult { throw std::runtime_error(message); });
  }

  /// Every command run so far, in order.
  std::vector<ShellCommand> calls() const {
    const std::lock_guard lock(mutex_);
    return calls_;
  }

  CommandResult run(const ShellCommand& command) override {
    CommandResult result = answerTo(command)();
    if (!result.succeeded()) throw CommandRunnerError::nonZeroExit(std::move(result));
    return result;
  }

 private:
  Answer answerTo(const ShellCommand& command) {
    const std::lock_guard lock(mutex_);
    calls_.push_back(command);
    for (const auto& [scripted, answer] : script_) {
      if (scripted == command) return answer;
    }
    throw std::runtime_error("no answer scripted for " + command.executable);
  }

  mutable std::mutex mutex_;
  std::vector<std::pair<ShellCommand, Answer>> script_;  // guarded by mutex_; newest first
  std::vector<ShellCommand> calls_;                      // guarded by mutex_
};

}  // namespace wakelatch
