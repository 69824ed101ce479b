#include "WakelatchCore/Models.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Platform/Files.h"
#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch {

using Strings = std::vector<std::string>;

TEST(Settings, DefaultsAreThoseOfTheSchema) {
  using nlohmann::json;
  const json schema =
      json::parse(platform::readFile(WAKELATCH_SOURCE_DIR "/Schemas/settings.schema.json"));
  json expected;
  for (const auto& [key, property] : schema["properties"].items()) {
    if (!property.contains("default")) continue;
    const json& value = property["default"];
    if (!property.contains("deprecated")) {
      expected[key] = value;
    } else if (key == "allowUnlimitedWhilePluggedIn") {
      expected["pluggedInProfile"]["allowUnlimitedKeepAwake"] = value;
    } else {
      expected["batteryProfile"][key] = expected["pluggedInProfile"][key] = value;
    }
  }
  expected["batteryProfile"]["allowUnlimitedKeepAwake"] = false;
  EXPECT_EQ(json::parse(encode(GuardSettings())), expected);
  EXPECT_EQ(GuardSettings().batteryProfile, GuardPowerProfile());
  EXPECT_EQ(decode<GuardSettings>("{}"), GuardSettings());
}

TEST(Settings, FlatLayoutFillsTheProfilesThatAreMissing) {
  const auto flat = decode<GuardSettings>(
      R"({"batteryCutoffPercent":10,"allowUnlimitedWhilePluggedIn":false,"idlePhrases":[]})");
  EXPECT_EQ(flat.batteryProfile, (GuardPowerProfile{.batteryCutoffPercent = 10}));
  EXPECT_EQ(flat.pluggedInProfile, flat.batteryProfile);
  const auto mixed = decode<GuardSettings>(
      R"({"warningPercent":40,"pluggedInProfile":null,"batteryProfile":{"batteryCutoffPercent":1,
          "warningPercent":2,"idleGracePeriodSeconds":3,"cpuThresholdPercent":4.5,
          "allowUnlimitedKeepAwake":true,"sleepAfterCompletion":false,"sleepOnlyIfLidClosed":false}})");
  EXPECT_EQ(mixed.batteryProfile, (GuardPowerProfile{1, 2, 3, 4.5, true, false, false}));
  EXPECT_EQ(mixed.pluggedInProfile,
            (GuardPowerProfile{.warningPercent = 40, .allowUnlimitedKeepAwake = true}));
  EXPECT_EQ(decode<GuardSettings>(encode(mixed)), mixed);
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
  EXPECT_TRUE(Legal::needsAcceptance({}) && !Legal::needsAcceptance("1.6"));
  EXPECT_TRUE(Onboarding::needsOnboarding(false, false) &&
              !Onboarding::needsOnboarding(false, true) &&
              !Onboarding::needsOnboarding(true, false));
  const auto headline = [](SignalStrength strength, const char* name) {
    const auto [text, isDetected] = Onboarding::detectionHeadline(strength, name);
    return isDetected ? text : "no: " + text;
  };
  EXPECT_EQ(headline(SignalStrength::presence, "Cursor"), "Watching — Cursor detected");
  EXPECT_EQ(headline(SignalStrength::weak, "Cursor"), "Watching — Cursor is working");
  EXPECT_EQ(headline(SignalStrength::strong, ""), "no: No agents detected yet");
  EXPECT_EQ(headline(SignalStrength::none, "Cursor"), "no: No agents detected yet");
}

TEST(Notices, NameTheAgentsThatOnlyTheirTextShows) {
  std::vector<AgentProfile> text(5);
  for (std::size_t i = 0; i < text.size(); ++i) text[i].displayName = static_cast<char>('A' + i);
  AgentProfile cpu, files;
  cpu.trustsCPUSignal = true;
  files.sessionActivityGlobs = {"*"};
  using AccessibilityNotice::onboardingNote, AccessibilityNotice::panelWarning;
  EXPECT_EQ(onboardingNote({cpu, files}), "Optional: your watched agents are detected without it.");
  EXPECT_EQ(onboardingNote({cpu, text[0]}),
            "Needed for A: without it, their work cannot be seen. Your other agents are still "
            "detected without it.");
  EXPECT_EQ(onboardingNote({text[0], text[1]}),
            "Required for your agents: without it, Lumenhold cannot tell when A and B are working, "
            "so it will not keep your Mac awake.");
  EXPECT_EQ(panelWarning(text, true), std::nullopt);
  EXPECT_EQ(panelWarning({cpu}, false), std::nullopt);
  const auto warning = [](const std::string& names, const std::string& them) {
    return "Accessibility access is off — Lumenhold cannot tell when " + names +
           " working, so it will not keep your Mac awake for " + them + ".";
  };
  EXPECT_EQ(panelWarning({text[0], cpu}, false), warning("A is", "it"));
  EXPECT_EQ(panelWarning({text[0], text[1], text[2]}, false), warning("A, B and C are", "them"));
  EXPECT_EQ(panelWarning(text, false), warning("A, B and 3 more are", "them"));
}

}  // namespace wakelatch
