#include "WakelatchCore/Models.h"

#include <gtest/gtest.h>

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch {
namespace {

using Strings = std::vector<std::string>;

TEST(Models, EnumerationsKeepTheirOrderAndMatchExactly) {
  EXPECT_EQ(allCases<AppMode>(),
            (std::array{AppMode::off, AppMode::manualKeepAwake, AppMode::watchAgentUI,
                        AppMode::sleepAfterCurrentWork, AppMode::pluggedInUnlimited}));
  EXPECT_EQ(fromRawValue<AppMode>("watchAgentUI"), AppMode::watchAgentUI);
  EXPECT_EQ(fromRawValue<AppMode>("Off"), std::nullopt);
  EXPECT_EQ(displayName(AppMode::pluggedInUnlimited), "Plugged-In Unlimited Mode");
  EXPECT_EQ(displayName(GuardStatus::pluggedInUnlimited), "Plugged In Unlimited");
  EXPECT_EQ(fromRawValue<SignalStrength>(4), std::nullopt);
  EXPECT_EQ(fromRawValue<SignalStrength>(-1), std::nullopt);
  EXPECT_LT(SignalStrength::presence, SignalStrength::weak);
}

TEST(Models, PowerIsDescribedByLevelAndSource) {
  EXPECT_EQ((PowerSnapshot{true, 85, ""}.displayName()), "85%, AC Power");
  EXPECT_EQ((PowerSnapshot{false, 0, ""}.displayName()), "0%, Battery");
  EXPECT_EQ((PowerSnapshot{true, {}, ""}.displayName()), "Battery unknown, AC Power");
}

TEST(Settings, EmptyObjectGivesTheDefaults) {
  const auto settings = decode<GuardSettings>("{}");
  EXPECT_EQ(settings, GuardSettings());
  EXPECT_EQ(settings.batteryProfile, (GuardPowerProfile{20, 30, 90, 8, false, true, true}));
  EXPECT_EQ(settings.pluggedInProfile, (GuardPowerProfile{20, 30, 90, 8, true, true, true}));
  EXPECT_EQ(settings.activePhrases.size(), 9u);
  EXPECT_EQ(settings.idlePhrases,
            (Strings{"Send", "Ask", "New chat", "Done", "Finished", "Completed"}));
  EXPECT_TRUE(settings.accessibilityDetectionEnabled && settings.restoreNormalSleepOnQuit);
  EXPECT_FALSE(settings.launchAtLoginEnabled || settings.enableBrowsers ||
               settings.keepAwakeWithLidClosed || settings.letDisplaySleep);
}

TEST(Settings, FlatLayoutFillsTheProfilesThatAreMissing) {
  const auto flat = decode<GuardSettings>(
      R"({"batteryCutoffPercent":10,"allowUnlimitedWhilePluggedIn":false,"idlePhrases":[]})");
  EXPECT_EQ(flat.batteryProfile, (GuardPowerProfile{10, 30, 90, 8, false, true, true}));
  EXPECT_EQ(flat.pluggedInProfile, flat.batteryProfile);
  EXPECT_TRUE(flat.idlePhrases.empty());

  const auto mixed = decode<GuardSettings>(
      R"({"warningPercent":40,"pluggedInProfile":null,"batteryProfile":{"batteryCutoffPercent":1,
          "warningPercent":2,"idleGracePeriodSeconds":3,"cpuThresholdPercent":4.5,
          "allowUnlimitedKeepAwake":true,"sleepAfterCompletion":false,"sleepOnlyIfLidClosed":false}})");
  EXPECT_EQ(mixed.batteryProfile, (GuardPowerProfile{1, 2, 3, 4.5, true, false, false}));
  EXPECT_EQ(mixed.pluggedInProfile, (GuardPowerProfile{20, 40, 90, 8, true, true, true}));

  EXPECT_EQ(decode<GuardSettings>(encode(mixed)), mixed);
  EXPECT_EQ(encode(flat).find("allowUnlimitedWhilePluggedIn"), std::string::npos);
}

TEST(Settings, ConstructorBuildsAbsentProfilesFromTheFlatValues) {
  const GuardPowerProfile given{1, 2, 3, 4, true, false, true};
  const GuardSettings settings(given, std::nullopt, 11, 12, 13, 14, {" Cursor "}, {"a"}, {"i"},
                               false, true, true, false, false, false, {"zed"}, true, true, true);
  EXPECT_EQ(settings.batteryProfile, given);
  EXPECT_EQ(settings.pluggedInProfile, (GuardPowerProfile{11, 12, 13, 14, true, false, false}));
  EXPECT_EQ(settings.targetApps, Strings{" Cursor "}) << "stored unchanged";
  EXPECT_EQ(encode(settings).substr(0, 41), R"({"batteryProfile":{"batteryCutoffPercent")");
}

TEST(Settings, OldTargetNamesAreDropped) {
  EXPECT_EQ(GuardSettings::migrateLegacyTargets(
                {" Cursor ", "MyTool", "", "iTerm2", "my tool", "\t\n", " Zedd ", "CODE"}),
            (Strings{"MyTool", "my tool", " Zedd "}));
  EXPECT_EQ(decode<GuardSettings>(R"({"targetApps":["Claude","X"]})").targetApps, Strings{"X"});
}

TEST(Settings, FlatViewWritesOneProfileOrBoth) {
  GuardSettings settings;
  settings.setBatteryCutoffPercent(1);
  settings.setWarningPercent(2);
  settings.setIdleGracePeriodSeconds(3);
  settings.setCpuThresholdPercent(4);
  settings.setAllowUnlimitedWhilePluggedIn(false);
  settings.setSleepAfterCompletion(false);
  settings.setSleepOnlyIfLidClosed(false);
  EXPECT_EQ(settings.batteryProfile, (GuardPowerProfile{1, 2, 3, 4, false, false, false}));
  EXPECT_EQ(settings.pluggedInProfile, (GuardPowerProfile{20, 30, 3, 4, false, false, false}));
  EXPECT_EQ(&settings.profile({true, {}, ""}), &settings.pluggedInProfile);
  EXPECT_EQ(&settings.profile({false, 90, ""}), &settings.batteryProfile);
}

TEST(FirstRun, TermsComeBeforeOnboarding) {
  EXPECT_FALSE(Legal::needsAcceptance("1.6"));
  for (const auto& version : std::vector<std::optional<std::string>>{{}, "1.5", "1.6 ", "1.60"}) {
    EXPECT_TRUE(Legal::needsAcceptance(version));
  }
  EXPECT_FALSE(Onboarding::needsOnboarding(false, true));
  EXPECT_TRUE(Onboarding::needsOnboarding(false, false));
  EXPECT_FALSE(Onboarding::needsOnboarding(true, false));
}

TEST(FirstRun, HeadlineNamesWhatWasDetected) {
  using Onboarding::detectionHeadline, Onboarding::Headline;
  const Headline nothing{"No agents detected yet", false};
  EXPECT_EQ(detectionHeadline(SignalStrength::presence, "Cursor"),
            (Headline{"Watching — Cursor detected", true}));
  EXPECT_EQ(detectionHeadline(SignalStrength::weak, "Cursor"),
            (Headline{"Watching — Cursor is working", true}));
  EXPECT_EQ(detectionHeadline(SignalStrength::strong, ""), nothing);
  EXPECT_EQ(detectionHeadline(SignalStrength::strong, {}), nothing);
  EXPECT_EQ(detectionHeadline(SignalStrength::none, "Cursor"), nothing);
}

TEST(Notices, NameTheAgentsThatOnlyTheirTextShows) {
  const auto textOnly = [](const std::string& name) {
    AgentProfile profile;
    profile.displayName = name;
    return profile;
  };
  AgentProfile cpu = textOnly("Cpu"), files = textOnly("Files");
  cpu.trustsCPUSignal = true;
  files.sessionActivityGlobs = {"*"};
  const auto profiles = [&](int count, std::vector<AgentProfile> list = {}) {
    for (int i = 0; i < count; ++i)
      list.push_back(textOnly(std::string(1, static_cast<char>('A' + i))));
    return list;
  };
  using AccessibilityNotice::onboardingNote, AccessibilityNotice::panelWarning;
  const std::string optional = "Optional: your watched agents are detected without it.";
  EXPECT_EQ(onboardingNote({}), optional);
  EXPECT_EQ(onboardingNote({cpu, files}), optional);
  EXPECT_EQ(onboardingNote(profiles(1, {cpu})),
            "Needed for A: without it, their work cannot be seen. Your other agents are still "
            "detected without it.");
  EXPECT_EQ(onboardingNote(profiles(2)),
            "Required for your agents: without it, Lumenhold cannot tell when A and B are working, "
            "so it will not keep your Mac awake.");
  EXPECT_EQ(panelWarning(profiles(2), true), std::nullopt);
  EXPECT_EQ(panelWarning({cpu}, false), std::nullopt);
  EXPECT_EQ(panelWarning(profiles(1), false),
            "Accessibility access is off — Lumenhold cannot tell when A is working, so it will not "
            "keep your Mac awake for it.");
  EXPECT_EQ(
      panelWarning(profiles(3), false),
      "Accessibility access is off — Lumenhold cannot tell when A, B and C are working, so it "
      "will not keep your Mac awake for them.");
  EXPECT_NE(panelWarning(profiles(5), false)->find("when A, B and 3 more are"), std::string::npos);
}

}  // namespace
}  // namespace wakelatch
