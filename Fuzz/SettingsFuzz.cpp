// The settings file, against a plain definition. The input is the file.
#include <cmath>
#include <fstream>
#include <optional>

#include "Fuzz/Json.h"
#include "Host/SettingsFile.h"
#include "Platform/Text.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/Models.h"

using namespace wakelatch;
using fuzz::require;
using Json = nlohmann::json;

namespace {

struct Wrong {};

/// The member's value; absent if it is missing or null.
const Json* member(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found == object.end() || found->is_null() ? nullptr : &*found;
}

void read(const Json& value, bool& result) {
  if (!value.is_boolean()) throw Wrong();
  result = value.get<bool>();
}
void read(const Json& value, double& result) {
  if (!value.is_number()) throw Wrong();
  result = value.get<double>();
}
void read(const Json& value, std::int64_t& result) {
  if (!value.is_number()) throw Wrong();
  if (value.is_number_float() || value > Json(INT64_MAX)) {
    const double number = value.get<double>();
    if (std::trunc(number) != number || std::abs(number) >= 0x1p63) throw Wrong();
    result = static_cast<std::int64_t>(number);
  } else {
    result = value.get<std::int64_t>();
  }
}
void read(const Json& value, std::vector<std::string>& result) {
  if (!value.is_array()) throw Wrong();
  result.clear();
  for (const Json& element : value) {
    if (!element.is_string()) throw Wrong();
    result.push_back(element.get<std::string>());
  }
}
void read(const Json& value, GuardPowerProfile& result) {
  if (!value.is_object()) throw Wrong();
  const auto need = [&](const char* key, auto& field) {
    const Json* found = member(value, key);
    if (!found) throw Wrong();
    read(*found, field);
  };
  need("batteryCutoffPercent", result.batteryCutoffPercent);
  need("warningPercent", result.warningPercent);
  need("idleGracePeriodSeconds", result.idleGracePeriodSeconds);
  need("cpuThresholdPercent", result.cpuThresholdPercent);
  need("allowUnlimitedKeepAwake", result.allowUnlimitedKeepAwake);
  need("sleepAfterCompletion", result.sleepAfterCompletion);
  need("sleepOnlyIfLidClosed", result.sleepOnlyIfLidClosed);
}

bool isLegacy(const std::string& target) {
  const std::string name = platform::lowercased(platform::trimmed(target));
  for (const char* legacy :
       {"", "claude", "claude desktop", "codex", "codex desktop", "chatgpt", "cursor",
        "visual studio code", "code", "windsurf", "zed", "google chrome", "arc", "safari",
        "firefox", "comet", "terminal", "iterm2", "iterm"}) {
    if (name == legacy) return true;
  }
  return false;
}

/// The settings in the text; absent if it is not JSON or has a wrong value.
std::optional<GuardSettings> plainSettings(std::string_view text) {
  const Json json = Json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object() || text.find('\0') != text.npos) return std::nullopt;
  const auto maybe = [&](const char* key, auto& field) {
    const Json* found = member(json, key);
    if (found) read(*found, field);
    return found != nullptr;
  };
  try {
    GuardSettings settings;
    GuardPowerProfile flat{20, 30, 90, 8, true, true, true};
    maybe("batteryCutoffPercent", flat.batteryCutoffPercent);
    maybe("warningPercent", flat.warningPercent);
    maybe("idleGracePeriodSeconds", flat.idleGracePeriodSeconds);
    maybe("cpuThresholdPercent", flat.cpuThresholdPercent);
    maybe("allowUnlimitedWhilePluggedIn", flat.allowUnlimitedKeepAwake);
    maybe("sleepAfterCompletion", flat.sleepAfterCompletion);
    maybe("sleepOnlyIfLidClosed", flat.sleepOnlyIfLidClosed);
    if (!maybe("pluggedInProfile", settings.pluggedInProfile)) settings.pluggedInProfile = flat;
    flat.allowUnlimitedKeepAwake = false;
    if (!maybe("batteryProfile", settings.batteryProfile)) settings.batteryProfile = flat;
    maybe("targetApps", settings.targetApps);
    std::erase_if(settings.targetApps, isLegacy);
    maybe("activePhrases", settings.activePhrases);
    maybe("idlePhrases", settings.idlePhrases);
    maybe("accessibilityDetectionEnabled", settings.accessibilityDetectionEnabled);
    maybe("launchAtLoginEnabled", settings.launchAtLoginEnabled);
    maybe("restoreNormalSleepOnQuit", settings.restoreNormalSleepOnQuit);
    maybe("disabledAgentIDs", settings.disabledAgentIDs);
    maybe("enableBrowsers", settings.enableBrowsers);
    maybe("keepAwakeWithLidClosed", settings.keepAwakeWithLidClosed);
    maybe("letDisplaySleep", settings.letDisplaySleep);
    return settings;
  } catch (const Wrong&) {
    return std::nullopt;
  }
}

}  // namespace

FUZZ(text) {
  const auto expected = plainSettings(text);
  GuardSettings held;
  held.targetApps = {"held"};
  const bool isRead = fuzz::requireJsonHolds(text, DateCoding::secondsSince2001, held);
  require(isRead == expected.has_value(), "settings are read or refused as defined");
  require(!isRead || held == *expected, "settings are as defined");

  if (text.size() % 8 != 0) return;  // files are slow
  static const TemporaryDirectory directory;
  static const std::filesystem::path file = directory.path() / "settings.json";
  static host::LiveSettings live(file);
  const GuardSettings before = live.current();
  std::ofstream(file, std::ios::binary) << text;
  const std::string problem = live.refresh();
  require(live.current() == (isRead ? held : before), "what is wrong leaves the settings in force");
  require(!isRead || problem.empty(), "what is read is no problem");
}
