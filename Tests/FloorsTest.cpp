// The house has floors; includes only point down or stay on their own.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <sstream>

#include "Platform/Files.h"

namespace wakelatch {
namespace {

namespace fs = std::filesystem;

const std::map<std::string, int> componentFloors = {{"Enum", 1},
                                                    {"Json", 1},
                                                    {"Models", 1},
                                                    {"AgentStateMachine", 1},
                                                    {"AgentAppName", 1},
                                                    {"AgentCatalog", 1},
                                                    {"PhraseMatcher", 1},
                                                    {"UsageMetrics", 1},
                                                    {"ShellCommand", 2},
                                                    {"FileLogger", 2},
                                                    {"FileActivityProbe", 2},
                                                    {"ProcessDetector", 3},
                                                    {"AccessibilityDetector", 3},
                                                    {"SessionActivityDetector", 3},
                                                    {"PowerMonitor", 3},
                                                    {"SleepController", 3},
                                                    {"ActivityDetector", 4},
                                                    {"WakelatchCore", 4}};

/// The floor of a file named from the root, such as "WakelatchCore/Models.h"; nothing for others.
std::optional<int> floorOf(const fs::path& file) {
  const std::string room = file.begin()->string();
  if (room == "Platform") return 0;
  if (room == "Host") return 5;
  if (room != "WakelatchCore") return std::nullopt;
  const auto found = componentFloors.find(file.stem().string());
  return found == componentFloors.end() ? std::nullopt : std::optional(found->second);
}

TEST(Floors, IncludesOnlyPointDown) {
  const fs::path root = WAKELATCH_SOURCE_DIR;
  const std::regex include("#include \"([^\"]+)\"");
  int files = 0;
  for (const char* room : {"Platform", "WakelatchCore", "Host"}) {
    for (const auto& entry : fs::recursive_directory_iterator(root / room)) {
      const std::string extension = entry.path().extension().string();
      if (extension != ".h" && extension != ".cpp" && extension != ".mm") continue;
      const fs::path file = fs::relative(entry.path(), root);
      const std::optional<int> floor = floorOf(file);
      ASSERT_TRUE(floor) << file << " has no floor: add it to the table";
      std::istringstream lines(platform::readFile(entry.path()));
      for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (!std::regex_search(line, match, include)) continue;
        const std::optional<int> target = floorOf(match[1].str());
        EXPECT_TRUE(target && *target <= *floor) << file << " includes " << match[1];
      }
      ++files;
    }
  }
  EXPECT_GT(files, 30);
}

}  // namespace
}  // namespace wakelatch
