#include "WakelatchCore/PowerMonitor.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "Platform/Files.h"
#include "Tests/ScriptedRunner.h"

namespace wakelatch {
namespace {

std::string fixture(const std::string& name) {
  return platform::readFile(std::filesystem::path(WAKELATCH_SOURCE_DIR) / "Tests/Fixtures" / name);
}

TEST(PowerMonitor, ReadsWhatPmsetPrints) {
  const struct {
    const char* file;
    bool isOnACPower;
    std::optional<std::int64_t> percent;
  } rows[] = {
      {"laptop-charging", true, 64},   {"laptop-discharging", false, 42},
      {"laptop-charged", true, 100},   {"laptop-not-charging", true, 80},
      {"desktop", true, std::nullopt}, {"ups", false, 86},
      {"two-batteries", false, 7},     {"foreign", false, std::nullopt},
  };
  for (const auto& row : rows) {
    std::string text = fixture(std::string("pmset/") + row.file + ".txt");
    const PowerSnapshot reading = PowerMonitor::parsePMSetBatteryOutput("\n " + text);
    text.pop_back();  // only the ends are trimmed
    EXPECT_EQ(reading, (PowerSnapshot{row.isOnACPower, row.percent, text})) << row.file;
  }
  EXPECT_EQ(PowerMonitor::parsePMSetBatteryOutput(" \n"), PowerSnapshot());
  EXPECT_TRUE(PowerMonitor::parsePMSetBatteryOutput("drawing from AC POWER").isOnACPower);
}

TEST(PowerMonitor, FindsTheFirstPercentage) {
  const struct {
    const char* text;
    std::optional<std::int64_t> percent;
  } rows[] = {
      {"0%", 0},
      {"007%", 7},
      {"999%", 999},
      {"1234%", 234},
      {"a5%b6%", 5},
      {"% %% 12 % 8%", 8},
      {"-3%", 3},
      {"1.5%", 5},
      {"%", {}},
      {"12 %", {}},
      {"é%", {}},
      {"é9%", 9},
      {"٤٢% 10%", {}},  // Arabic digits are digits, but no number
      {"1٢% 10%", {}},
      {"٣123%", 123},
      {"𝟗% 10%", {}},
      {"²% 10%", 10},
      {"\xB0% \xC0\xB0", {}},
      {"\xB0\xB0\xB0\xB0\xB0% 10%", 10},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(PowerMonitor::parsePMSetBatteryOutput(row.text).batteryPercent, row.percent)
        << row.text;
  }
}

TEST(LidStateDetector, ReadsWhatIoregPrints) {
  const std::pair<std::string, LidState> rows[] = {
      {fixture("ioreg/lid-open.txt"), LidState::open},
      {fixture("ioreg/lid-closed.txt"), LidState::closed},
      {fixture("ioreg/no-lid.txt"), LidState::unknown},
      {"", LidState::unknown},
      {"APPLECLAMSHELLSTATE = NO", LidState::open},
      {"AppleClamshellState = Yes", LidState::closed},
      {"AppleClamshellState = Nothing", LidState::open},
      {"\"AppleClamshellState\" = No\n\"AppleClamshellState\" = Yes", LidState::closed},
      {"\"AppleClamshellState\" = No\nAppleClamshellState = Yes", LidState::closed},
      {"\"AppleClamshellState\"=Yes", LidState::unknown},
      {"\"AppleClamshellState\"  = Yes", LidState::unknown},
      {"\"AppleClamshellState\" = 1", LidState::unknown},
  };
  for (const auto& [text, state] : rows) EXPECT_EQ(LidStateDetector::parseIORegOutput(text), state);
}

const ShellCommand pmset{"/usr/bin/pmset", {"-g", "batt"}};
const ShellCommand ioreg{"/usr/sbin/ioreg", {"-r", "-k", "AppleClamshellState", "-d", "1"}};

TEST(Probes, ParseTheOutputOfTheirTool) {
  ScriptedRunner runner;
  runner.on(pmset, [] { return CommandResult{0, "AC Power 5%", "6%"}; });
  runner.on(ioreg, [] {
    return CommandResult{0, "AppleClamshellState = No", "AppleClamshellState = Yes"};
  });
  EXPECT_EQ(PowerMonitor(runner).snapshot(), (PowerSnapshot{true, 5, "AC Power 5%"}));
  EXPECT_EQ(LidStateDetector(runner).lidState(), LidState::open);
}

/// Both probes with tools that fail, logging under `home`.
bool fallsBack(const std::filesystem::path& home) {
  ::setenv("HOME", home.c_str(), 1);
  ScriptedRunner runner;
  runner.failOn(pmset, "no pmset");
  runner.failOn(ioreg, "no ioreg");
  const PowerSnapshot fallback{false, std::nullopt, "Unable to read battery state"};
  return PowerMonitor(runner).snapshot() == fallback &&
         LidStateDetector(runner).lidState() == LidState::unknown;
}

TEST(ProbesDeathTest, LogAFailedRunAndFallBack) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const std::filesystem::path home = std::filesystem::path(::testing::TempDir()) / "ProbesTest";
  std::filesystem::remove_all(home);
  // In a process of its own, because the shared logger finds its file once; that process begins
  // the test anew, so the folder has a fixed name.
  EXPECT_EXIT(std::exit(fallsBack(home) ? 0 : 1), ::testing::ExitedWithCode(0), "");
  EXPECT_THAT(platform::readFile(home / "Library/Logs/Wakelatch.log"),
              ::testing::MatchesRegex("\\[[^]]+\\] PowerMonitor failed: no pmset\n"
                                      "\\[[^]]+\\] LidStateDetector failed: no ioreg\n"));
  std::filesystem::remove_all(home);
}

}  // namespace
}  // namespace wakelatch
