// The user's settings on disk. Read only: the host never writes them.
#pragma once

#include <filesystem>
#include <string>

#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// The settings that `file` holds; the defaults when there is no such file. Throws
/// std::runtime_error naming the file, the key and what is wrong with it.
GuardSettings loadSettings(const std::filesystem::path& file);

/// The settings with which one agent alone is looked for, and none of the user's own targets.
/// @param id        the agent's AgentProfile::id; empty: `settings` is returned unchanged
/// @param profiles  all that are known
GuardSettings onlyAgent(GuardSettings settings, const std::string& id,
                        const AgentProfiles& profiles = {});

/// Settings that follow their file while the program runs. Used from one thread.
class LiveSettings {
 public:
  /// Loads the file; throws as loadSettings().
  /// @param agent,profiles  see onlyAgent()
  explicit LiveSettings(std::filesystem::path file, std::string agent = {},
                        const AgentProfiles& profiles = {});

  const GuardSettings& current() const { return settings_; }

  /// Reads the file again. A file that cannot be used leaves the settings as they were. Returns
  /// what to tell the user then, an empty text otherwise.
  /// @param profiles  as they are now
  std::string refresh(const AgentProfiles& profiles = {});

 private:
  const std::filesystem::path file_;
  const std::string agent_;
  GuardSettings settings_;
};

}  // namespace wakelatch::host
