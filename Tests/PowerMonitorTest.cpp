#include "WakelatchCore/PowerMonitor.h"

#include <gtest/gtest.h>

#include "Platform/Files.h"
#include "Tests/HostProgram.h"
#include "Tests/ScriptedRunner.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/ProcessDetector.h"

namespace wakelatch {
namespace {

const ShellCommand pmset{"/usr/bin/pmset", {"-g", "batt"}};
const ShellCommand ioreg{"/usr/sbin/ioreg", {"-r", "-k", "AppleClamshellState", "-d", "1"}};

std::string fixture(const std::string& name) {
  return platform::readFile(WAKELATCH_SOURCE_DIR "/Tests/Fixtures/" + name + ".txt");
}

TEST(PowerMonitor, ReadsWhatPmsetPrints) {
  const std::tuple<const char*, bool, std::optional<std::int64_t>> rows[] = {
      {"laptop-charging", true, 64},   {"laptop-discharging", false, 42},
      {"laptop-charged", true, 100},   {"laptop-not-charging", true, 80},
      {"desktop", true, std::nullopt}, {"ups", false, 86},
      {"two-batteries", false, 7},     {"foreign", false, std::nullopt},
  };
  ScriptedRunner runner;
  for (const auto& [file, isOnACPower, percent] : rows) {
    std::string text = fixture(std::string("pmset/") + file);
    runner.on(pmset, "\n " + text);
    text.pop_back();  // only the ends are trimmed
    EXPECT_EQ(PowerMonitor(runner).snapshot(), (PowerSnapshot{isOnACPower, percent, text})) << file;
  }
  EXPECT_EQ(PowerMonitor::parsePMSetBatteryOutput(" \n"), PowerSnapshot());
  EXPECT_TRUE(PowerMonitor::parsePMSetBatteryOutput("drawing from AC POWER").isOnACPower);
}

TEST(PowerMonitor, FindsTheFirstPercentage) {
  const auto percent = [](const char* text) {
    return PowerMonitor::parsePMSetBatteryOutput(text).batteryPercent;
  };
  for (const char* text : {"010%", "3010%", "% %% 7 % 10%", "1.10%", "é10%", "²% 10%", "٣010%",
                           "\xB0\xB0\xB0\xB0\xB0% 10%"})
    EXPECT_EQ(percent(text), 10) << text;
  for (const char* text : {"%", "é%", "٤٢% 10%", "1٢% 10%"})
    EXPECT_EQ(percent(text), std::nullopt) << text;
}

TEST(LidStateDetector, ReadsWhatIoregPrints) {
  using enum LidState;
  const std::string laptop = fixture("ioreg/lid-open"), closedLaptop = fixture("ioreg/lid-closed");
  ScriptedRunner runner;
  using Row = std::pair<std::string, LidState>;
  for (const auto& [text, state] :
       {Row{laptop, open}, Row{closedLaptop, closed}, Row{fixture("ioreg/no-lid"), unknown},
        Row{"APPLECLAMSHELLSTATE = NO", open}, Row{"\"AppleClamshellState\"=Yes", unknown},
        Row{"\"AppleClamshellState\" = No\nAppleClamshellState = Yes", closed}}) {
    runner.on(ioreg, text);
    EXPECT_EQ(LidStateDetector(runner).lidState(), state) << text;
  }
}

TEST(Probes, LogAFailedRunAndFallBack) {
  const std::filesystem::path log = FileLogger::shared().logURL();
  const std::size_t start = host::contentOf(log).size();
  ScriptedRunner runner;
  EXPECT_EQ(PowerMonitor(runner).snapshot(),
            (PowerSnapshot{false, std::nullopt, "Unable to read battery state"}));
  EXPECT_EQ(LidStateDetector(runner).lidState(), LidState::unknown);
  EXPECT_EQ(ProcessDetector(runner).detect({}, {}), ActivitySignal::none());
  for (const char* line :
       {"] PowerMonitor failed: no answer ", "] LidStateDetector failed: no answer ",
        "] ProcessDetector failed: no answer "})
    EXPECT_TRUE(host::eventually([&] {
      return host::contentOf(log).find(line, start) != std::string::npos;
    })) << line;
}

}  // namespace
}  // namespace wakelatch
