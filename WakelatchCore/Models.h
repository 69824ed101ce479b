// The values that all other components exchange: mode, status, signals, readings, decision and
// settings, and the texts of the first-run flow. All are plain values: copied, compared field by
// field, free to pass between threads. All functions are pure and callable from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "WakelatchCore/Enum.h"
#include "WakelatchCore/Json.h"

#pragma GCC visibility push(default)
namespace wakelatch {

struct AgentProfile;

/// The operating mode that the user has chosen.
enum class AppMode {
  off,
  manualKeepAwake,
  watchAgentUI,
  sleepAfterCurrentWork,
  pluggedInUnlimited,
};
template <>
inline constexpr auto enumCases<AppMode> = std::to_array<EnumCase<AppMode>>({
    {AppMode::off, "off", "Off"},
    {AppMode::manualKeepAwake, "manualKeepAwake", "Manual Keep Awake"},
    {AppMode::watchAgentUI, "watchAgentUI", "Watch Agent UI"},
    {AppMode::sleepAfterCurrentWork, "sleepAfterCurrentWork", "Sleep After Current Work"},
    {AppMode::pluggedInUnlimited, "pluggedInUnlimited", "Plugged-In Unlimited Mode"},
});
#ifndef __OBJC__  // where `id` is the type of any object; rawValue() gives the same
/// A mode's identity: its raw value.
constexpr std::string_view id(AppMode mode) {
  return rawValue(mode);
}
#endif

/// What the guard is doing, as a decision reports it.
enum class GuardStatus {
  off,
  watching,
  keepingAwake,
  idleGrace,
  batterySafety,
  thermalSafety,
  pluggedInUnlimited,
};
template <>
inline constexpr auto enumCases<GuardStatus> = std::to_array<EnumCase<GuardStatus>>({
    {GuardStatus::off, "off", "Off"},
    {GuardStatus::watching, "watching", "Watching"},
    {GuardStatus::keepingAwake, "keepingAwake", "Keeping Awake"},
    {GuardStatus::idleGrace, "idleGrace", "Idle Grace"},
    {GuardStatus::batterySafety, "batterySafety", "Battery Safety"},
    {GuardStatus::thermalSafety, "thermalSafety", "Thermal Safety"},
    {GuardStatus::pluggedInUnlimited, "pluggedInUnlimited", "Plugged In Unlimited"},
});

/// How strongly a signal indicates work; ordered. Only weak and strong count as active work.
enum class SignalStrength : std::int64_t {
  none = 0,      ///< nothing was found
  presence = 1,  ///< the agent is there, but nothing shows that it is working
  weak = 2,      ///< indirect evidence of work
  strong = 3,    ///< direct evidence of work
};
template <>
inline constexpr auto enumCases<SignalStrength> =
    std::to_array<EnumCase<SignalStrength, std::int64_t>>({
        {SignalStrength::none, 0},
        {SignalStrength::presence, 1},
        {SignalStrength::weak, 2},
        {SignalStrength::strong, 3},
    });

/// Whether a signal of this strength counts as work.
constexpr bool isActive(SignalStrength strength) {
  return strength >= SignalStrength::weak;
}

/// Position of the built-in display's lid.
enum class LidState { open, closed, unknown };
template <>
inline constexpr auto enumCases<LidState> = std::to_array<EnumCase<LidState>>({
    {LidState::open, "open", "Open"},
    {LidState::closed, "closed", "Closed"},
    {LidState::unknown, "unknown", "Unknown"},
});

/// Thermal pressure in the platform's four steps.
enum class ThermalState { nominal = 0, fair = 1, serious = 2, critical = 3 };
template <>
inline constexpr auto enumCases<ThermalState> = std::to_array<EnumCase<ThermalState>>({
    {ThermalState::nominal, "nominal", "Nominal"},
    {ThermalState::fair, "fair", "Fair"},
    {ThermalState::serious, "serious", "Serious"},
    {ThermalState::critical, "critical", "Critical"},
});

/// One piece of detected activity.
struct ActivitySignal {
  SignalStrength strength = SignalStrength::none;  ///< `none`: nothing was detected
  std::optional<std::string> appName = {};         ///< display name of the agent or application
  std::string reason = {};  ///< for the user; an active signal's becomes the decision's reason
  std::optional<std::string> matchedText = {};    ///< the phrase that matched
  std::optional<std::int64_t> sessionCount = {};  ///< live sessions; absent: not known
  std::optional<bool> processPresent = {};        ///< whether a process of the agent was seen

  friend bool operator==(const ActivitySignal&, const ActivitySignal&) = default;

  /// "No active agent signal": what detectors return when they find nothing.
  static const ActivitySignal& none();
};
template <>
inline constexpr auto json::fields<ActivitySignal> = std::tuple{
    json::required("strength", &ActivitySignal::strength),
    json::optional("appName", &ActivitySignal::appName),
    json::required("reason", &ActivitySignal::reason),
    json::optional("matchedText", &ActivitySignal::matchedText),
    json::optional("sessionCount", &ActivitySignal::sessionCount),
    json::optional("processPresent", &ActivitySignal::processPresent),
};
/// The strongest of `signals`, the first among equals; ActivitySignal::none() when there are none.
ActivitySignal strongest(const std::vector<ActivitySignal>& signals);

/// One reading of the power source.
struct PowerSnapshot {
  bool isOnACPower = false;                         ///< false if unreadable
  std::optional<std::int64_t> batteryPercent = {};  ///< absent: unreadable, or no battery
  std::string rawDescription = {};                  ///< the probe's raw text

  /// The reading for the user: "85%, AC Power", "Battery unknown, Battery".
  std::string displayName() const;

  friend bool operator==(const PowerSnapshot&, const PowerSnapshot&) = default;
};
template <>
inline constexpr auto json::fields<PowerSnapshot> = std::tuple{
    json::required("isOnACPower", &PowerSnapshot::isOnACPower),
    json::optional("batteryPercent", &PowerSnapshot::batteryPercent),
    json::required("rawDescription", &PowerSnapshot::rawDescription),
};

/// The result of one evaluation.
struct GuardDecision {
  GuardStatus status = GuardStatus::off;            ///< names the rule that applied
  bool shouldPreventSleep = false;                  ///< the keep-awake assertion is wanted now
  bool shouldSleepNow = false;                      ///< put the machine to sleep now, once
  std::optional<std::string> detectedAppName = {};  ///< the signal's name, whichever rule applied
  std::string reason = {};                          ///< one sentence for the user
  bool isBatteryWarning = false;  ///< the battery is low enough to warn, but above the cutoff

  friend bool operator==(const GuardDecision&, const GuardDecision&) = default;
};

/// The thresholds and switches that exist once for battery and once for external power. The initial
/// values are those of the default battery profile.
struct GuardPowerProfile {
  std::int64_t batteryCutoffPercent = 20;  ///< at or below: keep-awake is released
  std::int64_t warningPercent = 30;        ///< at or below, above the cutoff: warn
  double idleGracePeriodSeconds = 90;      ///< how long keep-awake outlasts the last active signal
  double cpuThresholdPercent = 8;          ///< percent of one core, as the process list reports it
  bool allowUnlimitedKeepAwake =
      false;  ///< whether AppMode::pluggedInUnlimited acts; read from the plugged-in profile alone
  bool sleepAfterCompletion = true;  ///< sleep after finished work even if the lid is not closed
  /// With an open lid the machine is not put to sleep after work, whatever sleepAfterCompletion or
  /// AppMode::sleepAfterCurrentWork say.
  bool sleepOnlyIfLidClosed = true;

  friend bool operator==(const GuardPowerProfile&, const GuardPowerProfile&) = default;
};
template <>
inline constexpr auto json::fields<GuardPowerProfile> = std::tuple{
    json::required("batteryCutoffPercent", &GuardPowerProfile::batteryCutoffPercent),
    json::required("warningPercent", &GuardPowerProfile::warningPercent),
    json::required("idleGracePeriodSeconds", &GuardPowerProfile::idleGracePeriodSeconds),
    json::required("cpuThresholdPercent", &GuardPowerProfile::cpuThresholdPercent),
    json::required("allowUnlimitedKeepAwake", &GuardPowerProfile::allowUnlimitedKeepAwake),
    json::required("sleepAfterCompletion", &GuardPowerProfile::sleepAfterCompletion),
    json::required("sleepOnlyIfLidClosed", &GuardPowerProfile::sleepOnlyIfLidClosed),
};

/// Every user setting that the library consults, and four that it keeps for its host.
struct GuardSettings {
  GuardPowerProfile batteryProfile;  ///< on battery; only its battery levels are used
  GuardPowerProfile pluggedInProfile{.allowUnlimitedKeepAwake = true};  ///< on external power
  std::vector<std::string> targetApps;  ///< extra application names to watch
  std::vector<std::string> activePhrases =
      defaultActivePhrases();  ///< texts that mark a target's window as working
  std::vector<std::string> idlePhrases = defaultIdlePhrases();  ///< texts that mark it as idle
  bool accessibilityDetectionEnabled = true;                    ///< whether UI text is read
  bool launchAtLoginEnabled = false;                            ///< for the host
  bool restoreNormalSleepOnQuit = true;                         ///< for the host
  std::vector<std::string> disabledAgentIDs;  ///< catalog agents not watched, by AgentProfile::id
  bool enableBrowsers = false;                ///< watch the catalog's browsers
  bool keepAwakeWithLidClosed = false;        ///< for the host
  bool letDisplaySleep = false;               ///< for the host

  ///@{
  /// The lists in force when the settings file has none; defaultTargetApps() is empty.
  static const std::vector<std::string>& defaultTargetApps();
  static const std::vector<std::string>& defaultActivePhrases();
  static const std::vector<std::string>& defaultIdlePhrases();
  ///@}

  /// The settings that an empty JSON object decodes to.
  GuardSettings() = default;

  /// Settings from all values. An absent profile is built from the flat values: the battery profile
  /// without unlimited keep-awake, the plugged-in profile as `allowUnlimitedWhilePluggedIn` says.
  GuardSettings(std::optional<GuardPowerProfile> batteryProfile,
                std::optional<GuardPowerProfile> pluggedInProfile,
                std::int64_t batteryCutoffPercent, std::int64_t warningPercent,
                double idleGracePeriodSeconds, double cpuThresholdPercent,
                std::vector<std::string> targetApps, std::vector<std::string> activePhrases,
                std::vector<std::string> idlePhrases, bool accessibilityDetectionEnabled,
                bool launchAtLoginEnabled, bool allowUnlimitedWhilePluggedIn,
                bool sleepAfterCompletion, bool sleepOnlyIfLidClosed, bool restoreNormalSleepOnQuit,
                std::vector<std::string> disabledAgentIDs, bool enableBrowsers,
                bool keepAwakeWithLidClosed, bool letDisplaySleep);

  /// The profile in force under this power reading.
  const GuardPowerProfile& profile(const PowerSnapshot& power) const {
    return power.isOnACPower ? pluggedInProfile : batteryProfile;
  }

  /// `targets` without blank entries and without the names that older versions added by themselves;
  /// the others keep their order and text.
  static std::vector<std::string> migrateLegacyTargets(std::vector<std::string> targets);

  ///@{
  /// The older view, with one value for both profiles. Getters read the battery profile, setters
  /// write both profiles; but the battery levels are written to the battery profile alone, and the
  /// unlimited switch is the plugged-in profile's.
  std::int64_t batteryCutoffPercent() const { return batteryProfile.batteryCutoffPercent; }
  std::int64_t warningPercent() const { return batteryProfile.warningPercent; }
  double idleGracePeriodSeconds() const { return batteryProfile.idleGracePeriodSeconds; }
  double cpuThresholdPercent() const { return batteryProfile.cpuThresholdPercent; }
  bool allowUnlimitedWhilePluggedIn() const { return pluggedInProfile.allowUnlimitedKeepAwake; }
  bool sleepAfterCompletion() const { return batteryProfile.sleepAfterCompletion; }
  bool sleepOnlyIfLidClosed() const { return batteryProfile.sleepOnlyIfLidClosed; }
  void setBatteryCutoffPercent(std::int64_t percent) {
    batteryProfile.batteryCutoffPercent = percent;
  }
  void setWarningPercent(std::int64_t percent) { batteryProfile.warningPercent = percent; }
  void setIdleGracePeriodSeconds(double seconds) {
    batteryProfile.idleGracePeriodSeconds = pluggedInProfile.idleGracePeriodSeconds = seconds;
  }
  void setCpuThresholdPercent(double percent) {
    batteryProfile.cpuThresholdPercent = pluggedInProfile.cpuThresholdPercent = percent;
  }
  void setAllowUnlimitedWhilePluggedIn(bool allow) {
    pluggedInProfile.allowUnlimitedKeepAwake = allow;
  }
  void setSleepAfterCompletion(bool sleep) {
    batteryProfile.sleepAfterCompletion = pluggedInProfile.sleepAfterCompletion = sleep;
  }
  void setSleepOnlyIfLidClosed(bool only) {
    batteryProfile.sleepOnlyIfLidClosed = pluggedInProfile.sleepOnlyIfLidClosed = only;
  }
  ///@}

  friend bool operator==(const GuardSettings&, const GuardSettings&) = default;
};
template <>
inline constexpr auto json::fields<GuardSettings> = std::tuple{
    json::optional("batteryProfile", &GuardSettings::batteryProfile),
    json::optional("pluggedInProfile", &GuardSettings::pluggedInProfile),
    json::optional("targetApps", &GuardSettings::targetApps),
    json::optional("activePhrases", &GuardSettings::activePhrases),
    json::optional("idlePhrases", &GuardSettings::idlePhrases),
    json::optional("accessibilityDetectionEnabled", &GuardSettings::accessibilityDetectionEnabled),
    json::optional("launchAtLoginEnabled", &GuardSettings::launchAtLoginEnabled),
    json::optional("restoreNormalSleepOnQuit", &GuardSettings::restoreNormalSleepOnQuit),
    json::optional("disabledAgentIDs", &GuardSettings::disabledAgentIDs),
    json::optional("enableBrowsers", &GuardSettings::enableBrowsers),
    json::optional("keepAwakeWithLidClosed", &GuardSettings::keepAwakeWithLidClosed),
    json::optional("letDisplaySleep", &GuardSettings::letDisplaySleep),
};
/// Replaces `settings` by what the JSON object holds, with defaults for missing fields and
/// migrateLegacyTargets() applied. Also accepts the older layout, which has one value for both
/// profiles and is never written. Throws DecodingError.
void read(const json::Value& in, GuardSettings& settings);

/// Which version of the terms the user must have accepted, and where the host stores that.
namespace Legal {
/// The current version of the terms; versions are compared as texts.
inline constexpr std::string_view currentVersion = "1.6";
///@{
/// Keys of the host's user defaults: the accepted version, and when it was accepted.
inline constexpr std::string_view acceptedVersionDefaultsKey = "Lumenhold.acceptedLegalVersion";
inline constexpr std::string_view acceptedDateDefaultsKey = "Lumenhold.acceptedLegalVersion.date";
///@}

/// True unless exactly the current version was accepted.
bool needsAcceptance(const std::optional<std::string>& acceptedVersion);
}  // namespace Legal

/// Whether to show the first-run flow, and the headline it shows.
namespace Onboarding {
/// Key of the host's user defaults: whether the flow was completed.
inline constexpr std::string_view completedDefaultsKey = "Lumenhold.hasCompletedOnboarding";

/// The flow's first line.
struct Headline {
  std::string text;       ///< a sentence without its full stop
  bool detected = false;  ///< an agent was found
  friend bool operator==(const Headline&, const Headline&) = default;
};

/// Whether to show the flow: not once it was completed, and not before the terms are accepted.
bool needsOnboarding(bool hasCompleted, bool needsLegalAcceptance);
/// The headline for the strongest signal of a tick.
Headline detectionHeadline(SignalStrength strength, const std::optional<std::string>& appName);
}  // namespace Onboarding

/// Texts about agents whose work shows only in their UI text, which takes the accessibility
/// permission.
namespace AccessibilityNotice {
/// Whether neither CPU load nor session files nor turn records show this agent's work.
bool isUITextOnly(const AgentProfile& profile);
/// The display names of the UI-text-only profiles, in order.
std::vector<std::string> uiTextOnlyNames(const std::vector<AgentProfile>& profiles);
/// A note for the first-run flow: whether the permission is needed, and for which agents.
std::string onboardingNote(const std::vector<AgentProfile>& watched);
/// A warning, or nothing when the permission is granted or no running agent needs it.
std::optional<std::string> panelWarning(const std::vector<AgentProfile>& running,
                                        bool accessibilityTrusted);
}  // namespace AccessibilityNotice

}  // namespace wakelatch
#pragma GCC visibility pop
