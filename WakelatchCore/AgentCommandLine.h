// What a process was started to do, read from its command line as `ps` prints it: without the
// quotes that told where an argument ends, so a word is what stands between spaces.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch {

/// A process's command line. Refers to the texts that it was made from; callable from any thread.
class AgentCommandLine {
 public:
  /// @param executable  the path of what runs
  /// @param arguments   all of them, the program's own name first; empty when unknown
  AgentCommandLine(std::string_view executable, std::string_view arguments)
      : executable_(executable), arguments_(arguments) {}

  /// As given to the constructor.
  std::string_view executable() const { return executable_; }
  /// What an interpreter is told to run: the path of a script, or the name of a package or module.
  /// An application may be an interpreter too, of scripts. Empty for other programs, and for code
  /// among the arguments.
  std::string_view program() const;

  /// How an agent was started.
  enum class Run {
    interactive,  ///< for a person, or for anything else that the profile does not tell
    oneShot,      ///< to answer one prompt and end
    server,       ///< for another program
  };
  /// By the profile's words. A prompt may hold any of them, so the search ends where it begins:
  /// at the second word that is neither an option nor may be an option's value.
  Run runOf(const AgentProfile& profile) const;
  /// Whether it was started with one of such arguments of a profile.
  bool hasOneOf(const std::vector<std::string>& arguments) const;

 private:
  std::optional<std::size_t> programWord(const std::vector<std::string_view>& words) const;
  std::vector<std::string_view> words() const;
  std::vector<std::string_view> wordsBehindProgram() const;

  std::string_view executable_, arguments_;
};

/// Whether an executable of this name runs programs written as scripts or packages.
bool isInterpreterName(std::string_view executable);

}  // namespace wakelatch
