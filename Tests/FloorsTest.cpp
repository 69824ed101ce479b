// The house has floors; includes only point down or stay on their own.
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <regex>
#include <set>
#include <vector>

#include "Platform/Files.h"

namespace wakelatch {
namespace {

namespace fs = std::filesystem;

const std::vector<std::set<std::string>> componentsByFloor = {
    {},
    {"Enum", "Json", "Models", "AgentStateMachine", "AgentAppName", "AgentCatalog", "PhraseMatcher",
     "UsageMetrics"},
    {"ShellCommand", "FileLogger", "FileActivityProbe"},
    {"ProcessDetector", "AccessibilityDetector", "SessionActivityDetector", "PowerMonitor",
     "SleepController"},
    {"ActivityDetector", "WakelatchCore"}};

/// The floor of a file named from the root, such as "WakelatchCore/Models.h"; nothing for others.
std::optional<std::size_t> floorOf(const fs::path& file) {
  const std::string room = file.begin()->string();
  if (room == "Platform") return 0;
  if (room == "Host") return componentsByFloor.size();
  if (room != "WakelatchCore") return std::nullopt;
  for (std::size_t floor = 0; floor < componentsByFloor.size(); ++floor) {
    if (componentsByFloor[floor].count(file.stem().string()) > 0) return floor;
  }
  return std::nullopt;
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
      const auto floor = floorOf(file);
      ASSERT_TRUE(floor) << file << " has no floor: add it to the table";
      const std::string text = platform::readFile(entry.path());
      for (std::sregex_iterator match(text.begin(), text.end(), include), end; match != end;
           ++match) {
        const auto target = floorOf(match->str(1));
        EXPECT_TRUE(target && *target <= *floor) << file << " includes " << match->str(1);
      }
      ++files;
    }
  }
  EXPECT_GT(files, 30);
}

}  // namespace
}  // namespace wakelatch
