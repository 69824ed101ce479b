#include "Host/SettingsFile.h"

#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Host/UserFile.h"

namespace wakelatch::host {

GuardSettings loadSettings(const std::filesystem::path& file) try {
  const auto text = readIfThere(file);
  return text ? decode<GuardSettings>(*text) : GuardSettings();
} catch (const std::system_error& error) {
  throw std::runtime_error(std::string("settings: ") + error.what());
} catch (const DecodingError& error) {
  throw std::runtime_error("settings: " + file.string() + ": " + error.what() +
                           " (correct it, or move the file away to use the defaults)");
}

GuardSettings onlyAgent(GuardSettings settings, const std::string& id,
                        const AgentProfiles& profiles) {
  if (id.empty()) return settings;
  settings.disabledAgentIDs.clear();
  for (const AgentProfile& profile : profiles.all()) {
    if (profile.id != id) settings.disabledAgentIDs.push_back(profile.id);
    if (profile.id == id && profile.kind == AgentProfile::Kind::browser) {
      settings.enableBrowsers = true;
    }
  }
  settings.targetApps.clear();
  return settings;
}

LiveSettings::LiveSettings(std::filesystem::path file, std::string agent,
                           const AgentProfiles& profiles)
    : file_(std::move(file)),
      agent_(std::move(agent)),
      settings_(onlyAgent(loadSettings(file_), agent_, profiles)) {}

std::string LiveSettings::refresh(const AgentProfiles& profiles) {
  try {
    settings_ = onlyAgent(loadSettings(file_), agent_, profiles);
    return {};
  } catch (const std::runtime_error& error) {
    return std::string(error.what()) + "; until then the settings in force stay";
  }
}

}  // namespace wakelatch::host
