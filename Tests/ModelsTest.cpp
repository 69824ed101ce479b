#include "WakelatchCore/Models.h"

#include <gmock/gmock.h>

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch {

using testing::HasSubstr, testing::StartsWith;
using Strings = std::vector<std::string>;

TEST(Settings, FlatLayoutFillsTheProfilesThatAreMissing) {
  EXPECT_EQ(decode<GuardSettings>("{}"), GuardSettings());
  const auto flat = decode<GuardSettings>(
      R"({"batteryCutoffPercent":10,"allowUnlimitedWhilePluggedIn":false,"idlePhrases":[]})");
  EXPECT_EQ(flat.batteryProfile, (GuardPowerProfile{10, 30, 90, 8, false, true, true}));
  EXPECT_EQ(flat.pluggedInProfile, flat.batteryProfile);
  const auto mixed = decode<GuardSettings>(
      R"({"warningPercent":40,"pluggedInProfile":null,"batteryProfile":{"batteryCutoffPercent":1,
          "warningPercent":2,"idleGracePeriodSeconds":3,"cpuThresholdPercent":4.5,
          "allowUnlimitedKeepAwake":true,"sleepAfterCompletion":false,"sleepOnlyIfLidClosed":false}})");
  EXPECT_EQ(mixed.batteryProfile, (GuardPowerProfile{1, 2, 3, 4.5, true, false, false}));
  EXPECT_EQ(mixed.pluggedInProfile, (GuardPowerProfile{20, 40, 90, 8, true, true, true}));

  EXPECT_EQ(decode<GuardSettings>(encode(mixed)), mixed);
  EXPECT_EQ(encode(flat).find("allowUnlimitedWhilePluggedIn"), std::string::npos);
}

TEST(Settings, OldTargetNamesAreDropped) {
  EXPECT_EQ(GuardSettings::migrateLegacyTargets(
                {" Cursor ", "MyTool", "", "iTerm2", "my tool", "\t\n", " Zedd ", "CODE"}),
            (Strings{"MyTool", "my tool", " Zedd "}));
  EXPECT_EQ(decode<GuardSettings>(R"({"targetApps":["Claude","X"]})").targetApps, Strings{"X"});
}

TEST(Settings, FlatValuesFillAnAbsentProfileAndFlatViewWritesOneOrBoth) {
  const GuardPowerProfile plugged{7, 8, 0, 0, true, true, true};
  GuardSettings settings({}, plugged, 11, 12, 13, 14, {}, {}, {}, false, true, true, true, true,
                         false, {}, true, true, true);
  EXPECT_EQ(settings.batteryProfile, (GuardPowerProfile{11, 12, 13, 14, false, true, true}));
  EXPECT_EQ(settings.pluggedInProfile, plugged);
  settings.setBatteryCutoffPercent(1);
  settings.setWarningPercent(2);
  settings.setIdleGracePeriodSeconds(3);
  settings.setCpuThresholdPercent(4);
  settings.setAllowUnlimitedWhilePluggedIn(false);
  settings.setSleepAfterCompletion(false);
  settings.setSleepOnlyIfLidClosed(false);
  EXPECT_EQ(settings.batteryProfile, (GuardPowerProfile{1, 2, 3, 4, false, false, false}));
  EXPECT_EQ(settings.pluggedInProfile, (GuardPowerProfile{7, 8, 3, 4, false, false, false}));
}

TEST(FirstRun, TermsComeBeforeOnboardingAndTheHeadlineNamesWhatWasDetected) {
  EXPECT_FALSE(Legal::needsAcceptance("1.6"));
  EXPECT_TRUE(Legal::needsAcceptance({}));
  EXPECT_TRUE(Onboarding::needsOnboarding(false, false));
  EXPECT_FALSE(Onboarding::needsOnboarding(false, true) ||
               Onboarding::needsOnboarding(true, false));
  using Row = std::tuple<SignalStrength, const char*, const char*>;
  for (const auto& [strength, name, text] :
       {Row{SignalStrength::presence, "Cursor", "Watching — Cursor detected"},
        Row{SignalStrength::weak, "Cursor", "Watching — Cursor is working"},
        Row{SignalStrength::strong, "", "No agents detected yet"},
        Row{SignalStrength::none, "Cursor", "No agents detected yet"}})
    EXPECT_EQ(Onboarding::detectionHeadline(strength, name),
              (Onboarding::Headline{text, text[0] == 'W'}));
}

TEST(Notices, NameTheAgentsThatOnlyTheirTextShows) {
  std::vector<AgentProfile> text(5);
  for (std::size_t i = 0; i < text.size(); ++i) text[i].displayName = static_cast<char>('A' + i);
  AgentProfile cpu, files;
  cpu.trustsCPUSignal = true;
  files.sessionActivityGlobs = {"*"};
  using AccessibilityNotice::onboardingNote, AccessibilityNotice::panelWarning;
  EXPECT_THAT(onboardingNote({cpu, files}), StartsWith("Optional: "));
  EXPECT_THAT(onboardingNote({cpu, text[0]}), StartsWith("Needed for A: "));
  EXPECT_THAT(
      onboardingNote({text[0], text[1]}),
      HasSubstr(
          "Required for your agents: without it, Lumenhold cannot tell when A and B are working"));
  EXPECT_EQ(panelWarning(text, true), std::nullopt);
  EXPECT_EQ(panelWarning({cpu}, false), std::nullopt);
  EXPECT_THAT(*panelWarning({text[0], cpu}, false),
              HasSubstr(" A is working, so it will not keep your Mac awake for it."));
  EXPECT_THAT(*panelWarning({text[0], text[1], text[2]}, false), HasSubstr(" A, B and C are "));
  EXPECT_THAT(*panelWarning(text, false), HasSubstr(" A, B and 3 more are "));
}

}  // namespace wakelatch
