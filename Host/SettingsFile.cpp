#include "Host/SettingsFile.h"

#include <stdexcept>
#include <system_error>
#include <utility>

#include "Platform/Files.h"
#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch::host {

GuardSettings loadSettings(const std::filesystem::path& file) {
  std::string text;
  try {
    text = platform::readFile(file);
  } catch (const std::system_error& error) {
    // A home folder that is none, or a ring of links, holds no settings; a file that may not be
    // read does.
    std::error_code cause;
    const bool hasFolder = std::filesystem::exists(file.parent_path(), cause);
    if (!hasFolder && cause == std::errc::too_many_symbolic_link_levels) return {};
    if (error.code() == std::errc::not_a_directory) return {};
    if (error.code() == std::errc::no_such_file_or_directory) return {};
    throw std::runtime_error(std::string("settings: ") + error.what());
  }
  try {
    return decode<GuardSettings>(text);
  } catch (const DecodingError& error) {
    throw std::runtime_error("settings: " + file.string() + ": " + error.what() +
                             " (correct it, or move the file away to use the defaults)");
  }
}

GuardSettings onlyAgent(GuardSettings settings, const std::string& id) {
  if (id.empty()) return settings;
  settings.disabledAgentIDs.clear();
  for (const AgentProfile& profile : AgentCatalog::builtin()) {
    if (profile.id != id) settings.disabledAgentIDs.push_back(profile.id);
    if (profile.id == id && profile.kind == AgentProfile::Kind::browser) {
      settings.enableBrowsers = true;
    }
  }
  settings.targetApps.clear();
  return settings;
}

LiveSettings::LiveSettings(std::filesystem::path file, std::string agent)
    : file_(std::move(file)),
      agent_(std::move(agent)),
      settings_(onlyAgent(loadSettings(file_), agent_)) {}

std::string LiveSettings::refresh() {
  try {
    settings_ = onlyAgent(loadSettings(file_), agent_);
    return {};
  } catch (const std::runtime_error& error) {
    return std::string(error.what()) + "; until then the settings in force stay";
  }
}

}  // namespace wakelatch::host
