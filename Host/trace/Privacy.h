// What of a process may stand in a trace that somebody attaches to a bug report.
#pragma once

#include <set>
#include <string>
#include <string_view>

#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/ProcessDetector.h"

namespace wakelatch::host {

/// Leaves out of command lines what recognising agents does not need: prompts, names of files, of
/// projects and of the user. What is left is recognised as the same agent as before. A value;
/// callable from any thread.
class Privacy {
 public:
  /// @param catalogue  of all agents that may have to be recognised in what is left
  /// @param home       the user's home folder, written as "~"
  Privacy(const std::vector<AgentProfile>& catalogue, std::string home);

  /// With "~" for every mention of the home folder as a folder.
  std::string withoutHome(std::string_view text) const;

  /// A process of an agent: its path, and of its arguments the program that an interpreter runs,
  /// what else recognition needs, names of options, and words that make a run a single one or a
  /// server. "…" stands for the rest, and for the user's own folders on these paths.
  void reduceAgent(ProcessSnapshot& process) const;
  /// Any other process: the name of its program alone.
  void reduceOther(ProcessSnapshot& process) const;

 private:
  std::string withoutFolders(const std::string& path) const;
  std::string essential(const ProcessSnapshot& process) const;
  bool isNamedAsAgent(std::string_view word) const;
  bool hasMarker(std::string_view word) const;
  bool isRecognisedAlike(const ProcessSnapshot& a, const ProcessSnapshot& b) const;

  AgentResolver resolver_;
  std::string home_;
  std::set<std::string> names_;       ///< of agents' programs
  std::vector<std::string> markers_;  ///< of agents' paths
};

}  // namespace wakelatch::host
