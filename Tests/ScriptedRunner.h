// A command runner that plays a script, for components that run system tools.
#pragma once

#include <functional>
#include <stdexcept>

#include "WakelatchCore/ShellCommand.h"

namespace wakelatch {

/// Answers each command as the script says and records it. Scripting a command again replaces its
/// answer. For one thread.
struct ScriptedRunner : CommandRunning {
  /// Success with this output.
  void on(const ShellCommand& command, const std::string& output) {
    script.insert(script.begin(), {command, [output] { return CommandResult{0, output, ""}; }});
  }
  /// A program that cannot be started.
  void failOn(const ShellCommand& command, const std::string& message) {
    script.insert(script.begin(),
                  {command, [message]() -> CommandResult { throw std::runtime_error(message); }});
  }

  CommandResult run(const ShellCommand& command) override {
    calls.push_back(command);
    for (const auto& [scripted, answer] : script)
      if (scripted == command) return answer();
    throw std::runtime_error("no answer scripted for " + command.executable);
  }

  std::vector<ShellCommand> calls;  ///< every command run so far, in order

 private:
  std::vector<std::pair<ShellCommand, std::function<CommandResult()>>> script;  // newest first
};

}  // namespace wakelatch
