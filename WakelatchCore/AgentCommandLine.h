// Finds out from a command line what a process was started to do. `ps` prints command lines without
// quotes, so it is not known where an argument with spaces ends; words are what stands between
// spaces.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch {

/// A process's command line. A view: the texts that it was made from must outlive it. Callable from
/// any thread.
class AgentCommandLine {
 public:
  /// @param executable  path of the executable
  /// @param arguments   the whole argument string, program name first; empty when unknown
  AgentCommandLine(std::string_view executable, std::string_view arguments)
      : executable_(executable), arguments_(arguments) {}

  /// As given to the constructor.
  std::string_view executable() const { return executable_; }
  /// The program that an interpreter runs: the path of a script, or the name of a package or
  /// module. Empty if the executable is not an interpreter, or runs code from its arguments.
  /// Applications count as interpreters if their first argument is a script.
  std::string_view program() const;

  /// How an agent was started.
  enum class Run {
    interactive,  ///< for a person, or the arguments do not show otherwise
    oneShot,      ///< to answer one prompt and end
    server,       ///< to serve another program
  };
  /// How the agent was started, by the profile's oneShotArguments and serverArguments. A prompt may
  /// contain any of these words, so the search ends where the prompt may begin: at the second word
  /// that is neither an option nor possibly an option's value.
  Run runOf(const AgentProfile& profile) const;
  /// Whether one of `arguments`, written as in AgentProfile, is on the command line before a
  /// prompt.
  bool hasOneOf(const std::vector<std::string>& arguments) const;

 private:
  std::optional<std::size_t> programWord(const std::vector<std::string_view>& words) const;
  std::vector<std::string_view> words() const;
  std::vector<std::string_view> wordsBehindProgram() const;

  std::string_view executable_, arguments_;
};

/// Whether an executable of this name runs programs that are scripts or packages.
bool isInterpreterName(std::string_view executable);

}  // namespace wakelatch
