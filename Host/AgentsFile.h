// The agents that are looked for: the built-in ones, changed and added to by a file that comes with
// the program, and by one of the user's own. Both are JSON: {"agents": [{"id": …, …}]}.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch::host {

/// The agents, and where what is known of them comes from.
struct Agents {
  AgentProfiles profiles;
  /// By AgentProfile::id and the name of a field: the file that it was last set by. What is not
  /// here is built in.
  std::map<std::string, std::map<std::string, std::string>> sources;
};

/// "agents.json" that is installed with the program, found from where the program lies.
std::filesystem::path installedAgentsFile();

/// The built-in agents, changed by each file in turn. An entry names an agent by "id". For a known
/// agent it has the fields to change; for a new one it has at least "displayName", and fields that
/// it lacks get the defaults of its "kind". New agents are tried after the others. A file that does
/// not exist is skipped. Throws std::runtime_error naming the file, the place in it and what is
/// wrong: a value of the wrong kind, an unknown field, no id, or a display name that another agent
/// has.
Agents loadAgents(const std::vector<std::filesystem::path>& files);

/// The installed file and the user's own, in that order.
std::vector<std::filesystem::path> agentsFiles();

/// Agents that follow their files while the program runs. Used from one thread.
class LiveAgents {
 public:
  /// Loads the files; throws as loadAgents().
  explicit LiveAgents(std::vector<std::filesystem::path> files);

  const Agents& current() const { return agents_; }
  /// Grows whenever the agents change.
  int version() const { return version_; }

  /// Reads the files again if one has changed. A file that cannot be used leaves the agents as they
  /// were. Returns what to tell the user then, an empty text otherwise.
  std::string refresh();

 private:
  const std::vector<std::filesystem::path> files_;
  std::vector<std::optional<std::string>> texts_;  ///< of the files as they were used last
  Agents agents_;
  int version_ = 0;
};

}  // namespace wakelatch::host
