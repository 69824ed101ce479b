// Removes private data from processes before they are recorded: people attach traces to bug
// reports.
#pragma once

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/ProcessDetector.h"

namespace wakelatch::host {

/// Removes from command lines what is not needed to recognise agents: prompts, values of options,
/// directories of projects and the user's name. The result is recognised as the same agent. A
/// value; callable from any thread.
class Privacy {
 public:
  /// @param agents   agents that the result has to be recognised as
  /// @param targets  the user's own, by GuardSettings::targetApps
  /// @param home     the user's home directory, written as "~"
  Privacy(const AgentResolver& agents, std::vector<std::string> targets, std::string home);

  /// Whether it counts as an agent's or as one of the user's own targets.
  bool isAgent(const ProcessSnapshot& process) const;

  /// `text` with "~" in place of the home directory.
  std::string withoutHome(std::string_view text) const;

  /// Reduces an agent's process to its path and these arguments: its own name, the program that an
  /// interpreter runs, names of options, words that make a one-shot run or a server, and whatever
  /// else recognition needs. "…" stands for the rest, and for directories that people name.
  void reduceAgent(ProcessSnapshot& process) const;
  /// Reduces any other process to the name of its program and what shows that it is an agent's
  /// tool.
  void reduceOther(ProcessSnapshot& process) const;

 private:
  /// How much is left.
  enum class Detail { least, withWordsThatTell, withDirectories };

  ProcessSnapshot reduced(const ProcessSnapshot& process, Detail detail) const;
  std::string reducedArguments(const ProcessSnapshot& process, Detail detail) const;
  std::string withoutDirectories(std::string_view path) const;
  bool isMeaningful(std::string_view word) const;
  bool isNamedAsAgent(std::string_view word) const;
  std::optional<std::string_view> markerIn(std::string_view word) const;
  std::optional<std::size_t> targetOf(const ProcessSnapshot& process) const;
  bool isRecognisedAlike(const ProcessSnapshot& a, const ProcessSnapshot& b) const;

  AgentResolver agents_;
  std::vector<std::string> targets_;
  std::string home_;
  std::set<std::string> names_;               ///< of agents' programs, lower case
  std::vector<std::string> markers_;          ///< of agents' paths, lower case
  std::set<std::string, std::less<>> words_;  ///< of command lines, that tell how an agent runs
  std::vector<std::string> toolMarkers_;
};

}  // namespace wakelatch::host
