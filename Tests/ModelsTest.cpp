#include "WakelatchCore/Models.h"

#include <gtest/gtest.h>

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch {
namespace {

using Strings = std::vector<std::string>;

TEST(Models, ValuesAreNamed) {
  EXPECT_EQ(fromRawValue<AppMode>("watchAgentUI"), AppMode::watchAgentUI);
  EXPECT_EQ(fromRawValue<AppMode>("Off"), std::nullopt) << "a display name, not a raw value";
  EXPECT_EQ((PowerSnapshot{false, 0, ""}.displayName()), "0%, Battery");
  EXPECT_EQ((PowerSnapshot{true, {}, ""}.displayName()), "Battery unknown, AC Power");
}

TEST(Settings, EmptyObjectGivesTheDefaults) {
  const GuardSettings settings;
  EXPECT_EQ(decode<GuardSettings>("{}"), settings);
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

TEST(FirstRun, TermsComeBeforeOnboardingAndTheHeadlineNamesWhatWasDetected) {
  EXPECT_FALSE(Legal::needsAcceptance("1.6"));
  EXPECT_TRUE(Legal::needsAcceptance({}) && Legal::needsAcceptance("1.60"));
  EXPECT_TRUE(Onboarding::needsOnboarding(false, false));
  EXPECT_FALSE(Onboarding::needsOnboarding(false, true));
  EXPECT_FALSE(Onboarding::needsOnboarding(true, false));

  using enum SignalStrength;
  using Onboarding::Headline;
  const auto headline = Onboarding::detectionHeadline;
  const Headline nothing{"No agents detected yet", false};
  EXPECT_EQ(headline(presence, "Cursor"), (Headline{"Watching — Cursor detected", true}));
  EXPECT_EQ(headline(weak, "Cursor"), (Headline{"Watching — Cursor is working", true}));
  EXPECT_EQ(headline(strong, ""), nothing);
  EXPECT_EQ(headline(strong, {}), nothing);
  EXPECT_EQ(headline(none, "Cursor"), nothing);
}

TEST(Notices, NameTheAgentsThatOnlyTheirTextShows) {
  std::vector<AgentProfile> text(5);
  for (std::size_t i = 0; i < text.size(); ++i) text[i].displayName = static_cast<char>('A' + i);
  AgentProfile cpu, files;
  cpu.trustsCPUSignal = true;
  files.sessionActivityGlobs = {"*"};
  const auto first = [&](int count) { return std::vector(text.begin(), text.begin() + count); };
  using AccessibilityNotice::onboardingNote, AccessibilityNotice::panelWarning;
  const std::string optional = "Optional: your watched agents are detected without it.";
  EXPECT_EQ(onboardingNote({}), optional);
  EXPECT_EQ(onboardingNote({cpu, files}), optional);
  EXPECT_EQ(onboardingNote({cpu, text[0]}),
            "Needed for A: without it, their work cannot be seen. Your other agents are still "
            "detected without it.");
  EXPECT_EQ(onboardingNote(first(2)),
            "Required for your agents: without it, Lumenhold cannot tell when A and B are working, "
            "so it will not keep your Mac awake.");
  EXPECT_EQ(panelWarning(text, true), std::nullopt);
  EXPECT_EQ(panelWarning({cpu}, false), std::nullopt);
  const std::string off = "Accessibility access is off — Lumenhold cannot tell when ";
  EXPECT_EQ(panelWarning(first(1), false),
            off + "A is working, so it will not keep your Mac awake for it.");
  EXPECT_EQ(panelWarning(first(3), false),
            off + "A, B and C are working, so it will not keep your Mac awake for them.");
  EXPECT_EQ(panelWarning(text, false)->substr(off.size(), 21), "A, B and 3 more are w");
}

}  // namespace
}  // namespace wakelatch
