#include "WakelatchCore/Models.h"

#include <algorithm>
#include <array>

#include "Platform/Text.h"
#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch {

const ActivitySignal& ActivitySignal::none() {
  static const auto& signal = *new ActivitySignal{.reason = "No active agent signal"};
  return signal;
}

ActivitySignal strongest(const std::vector<ActivitySignal>& signals) {
  const auto best = std::max_element(
      signals.begin(), signals.end(),
      [](const ActivitySignal& a, const ActivitySignal& b) { return a.strength < b.strength; });
  return best == signals.end() ? ActivitySignal::none() : *best;
}

std::string PowerSnapshot::displayName() const {
  const std::string level =
      batteryPercent ? std::to_string(*batteryPercent) + "%" : std::string("Battery unknown");
  return level + (isOnACPower ? ", AC Power" : ", Battery");
}

// -------------------------------------------------------------------------------------- settings

namespace {

/// The older layout, with one set of values for both power sources. Unlimited keep-awake is for the
/// plugged-in profile, all others are for both profiles.
constexpr std::tuple flatFields{
    json::optional("batteryCutoffPercent", &GuardPowerProfile::batteryCutoffPercent),
    json::optional("warningPercent", &GuardPowerProfile::warningPercent),
    json::optional("idleGracePeriodSeconds", &GuardPowerProfile::idleGracePeriodSeconds),
    json::optional("cpuThresholdPercent", &GuardPowerProfile::cpuThresholdPercent),
    json::optional("allowUnlimitedWhilePluggedIn", &GuardPowerProfile::allowUnlimitedKeepAwake),
    json::optional("sleepAfterCompletion", &GuardPowerProfile::sleepAfterCompletion),
    json::optional("sleepOnlyIfLidClosed", &GuardPowerProfile::sleepOnlyIfLidClosed),
};

GuardPowerProfile withoutUnlimited(GuardPowerProfile profile) {
  profile.allowUnlimitedKeepAwake = false;
  return profile;
}

/// Names that older versions added to the target list by themselves; the catalog covers them now.
constexpr auto legacyManagedNames = std::to_array<std::string_view>(
    {"claude", "claude desktop", "codex", "codex desktop", "chatgpt", "cursor",
     "visual studio code", "code", "windsurf", "zed", "google chrome", "arc", "safari", "firefox",
     "comet", "terminal", "iterm2", "iterm"});

}  // namespace

// The lists are never destroyed: a thread may use them while the process exits.
const std::vector<std::string>& GuardSettings::defaultTargetApps() {
  static const auto& apps = *new std::vector<std::string>;
  return apps;
}

const std::vector<std::string>& GuardSettings::defaultActivePhrases() {
  static const auto& phrases = *new std::vector<std::string>{
      "Stop generating",        "Generating",       "Thinking",
      "Waiting for permission", "Codex is working", "Claude is working",
      "Working on it",          "Running task",     "Applying changes"};
  return phrases;
}

const std::vector<std::string>& GuardSettings::defaultIdlePhrases() {
  static const auto& phrases =
      *new std::vector<std::string>{"Send", "Ask", "New chat", "Done", "Finished", "Completed"};
  return phrases;
}

// The parameters have the names of the fields that they set.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
GuardSettings::GuardSettings(std::optional<GuardPowerProfile> batteryProfile,
                             std::optional<GuardPowerProfile> pluggedInProfile,
                             std::int64_t batteryCutoffPercent, std::int64_t warningPercent,
                             double idleGracePeriodSeconds, double cpuThresholdPercent,
                             std::vector<std::string> targetApps,
                             std::vector<std::string> activePhrases,
                             std::vector<std::string> idlePhrases,
                             bool accessibilityDetectionEnabled, bool launchAtLoginEnabled,
                             bool allowUnlimitedWhilePluggedIn, bool sleepAfterCompletion,
                             bool sleepOnlyIfLidClosed, bool restoreNormalSleepOnQuit,
                             std::vector<std::string> disabledAgentIDs, bool enableBrowsers,
                             bool keepAwakeWithLidClosed, bool letDisplaySleep)
    : targetApps(std::move(targetApps)),
      activePhrases(std::move(activePhrases)),
      idlePhrases(std::move(idlePhrases)),
      accessibilityDetectionEnabled(accessibilityDetectionEnabled),
      launchAtLoginEnabled(launchAtLoginEnabled),
      restoreNormalSleepOnQuit(restoreNormalSleepOnQuit),
      disabledAgentIDs(std::move(disabledAgentIDs)),
      enableBrowsers(enableBrowsers),
      keepAwakeWithLidClosed(keepAwakeWithLidClosed),
      letDisplaySleep(letDisplaySleep) {
  const GuardPowerProfile flat{batteryCutoffPercent,         warningPercent,
                               idleGracePeriodSeconds,       cpuThresholdPercent,
                               allowUnlimitedWhilePluggedIn, sleepAfterCompletion,
                               sleepOnlyIfLidClosed};
  this->batteryProfile = batteryProfile.value_or(withoutUnlimited(flat));
  this->pluggedInProfile = pluggedInProfile.value_or(flat);
}
#pragma GCC diagnostic pop

std::vector<std::string> GuardSettings::migrateLegacyTargets(std::vector<std::string> targets) {
  std::erase_if(targets, [](const std::string& target) {
    const std::string_view name = platform::trimmed(target);
    if (name.empty()) return true;
    const std::string key = platform::lowercased(name);
    return std::find(legacyManagedNames.begin(), legacyManagedNames.end(), key) !=
           legacyManagedNames.end();
  });
  return targets;
}

void read(const json::Value& in, GuardSettings& settings) {
  settings = GuardSettings();
  readFields(in, settings.pluggedInProfile, flatFields);
  settings.batteryProfile = withoutUnlimited(settings.pluggedInProfile);
  readFields(in, settings);
  settings.targetApps = GuardSettings::migrateLegacyTargets(std::move(settings.targetApps));
}

// ------------------------------------------------------------------------- first run and notices

bool Legal::needsAcceptance(const std::optional<std::string>& acceptedVersion) {
  return acceptedVersion != currentVersion;
}

bool Onboarding::needsOnboarding(bool hasCompleted, bool needsLegalAcceptance) {
  return !hasCompleted && !needsLegalAcceptance;
}

Onboarding::Headline Onboarding::detectionHeadline(SignalStrength strength,
                                                   const std::optional<std::string>& appName) {
  if (!appName || appName->empty() || strength == SignalStrength::none) {
    return {"No agents detected yet", false};
  }
  return {"Watching — " + *appName + (isActive(strength) ? " is working" : " detected"), true};
}

namespace {

std::string shortList(const std::vector<std::string>& names) {
  switch (names.size()) {
    case 0:
      return "";
    case 1:
      return names[0];
    case 2:
      return names[0] + " and " + names[1];
    case 3:
      return names[0] + ", " + names[1] + " and " + names[2];
    default:
      return names[0] + ", " + names[1] + " and " + std::to_string(names.size() - 2) + " more";
  }
}

}  // namespace

bool AccessibilityNotice::isUITextOnly(const AgentProfile& profile) {
  return !profile.trustsCPUSignal && profile.sessionActivityGlobs.empty() &&
         profile.turnRecords.empty();
}

std::vector<std::string> AccessibilityNotice::uiTextOnlyNames(
    const std::vector<AgentProfile>& profiles) {
  std::vector<std::string> names;
  for (const AgentProfile& profile : profiles) {
    if (isUITextOnly(profile)) names.push_back(profile.displayName);
  }
  return names;
}

std::string AccessibilityNotice::onboardingNote(const std::vector<AgentProfile>& watched) {
  const std::vector<std::string> names = uiTextOnlyNames(watched);
  if (names.empty()) return "Optional: your watched agents are detected without it.";
  if (names.size() < watched.size()) {
    return "Needed for " + shortList(names) + ": without it, their work cannot be seen. " +
           "Your other agents are still detected without it.";
  }
  return "Required for your agents: without it, Lumenhold cannot tell when " + shortList(names) +
         " " + (names.size() == 1 ? "is" : "are") + " working, so it will not keep your Mac awake.";
}

std::optional<std::string> AccessibilityNotice::panelWarning(
    const std::vector<AgentProfile>& running, bool accessibilityTrusted) {
  const std::vector<std::string> names = uiTextOnlyNames(running);
  if (accessibilityTrusted || names.empty()) return std::nullopt;
  const bool one = names.size() == 1;
  return "Accessibility access is off — Lumenhold cannot tell when " + shortList(names) + " " +
         (one ? "is" : "are") + " working, so it will not keep your Mac awake for " +
         (one ? "it" : "them") + ".";
}

}  // namespace wakelatch
