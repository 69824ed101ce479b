// Includes only point down to lower layers or stay within their own.
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

const std::vector<std::set<std::string>> componentsByLayer = {
    {},
    {"Enum", "Json", "Models", "AgentStateMachine", "AgentAppName", "AgentCatalog",
     "AgentCommandLine", "TurnRecordFormat", "PhraseMatcher", "UsageMetrics"},
    {"ShellCommand", "FileLogger", "PathPatterns", "FileActivityProbe", "WatchingFileProbe",
     "TurnRecords"},
    {"ProcessDetector", "AccessibilityDetector", "SessionActivityDetector", "PowerMonitor",
     "SleepController", "TurnDetector"},
    {"ActivityDetector", "WakelatchCore"}};

/// The layer of a file named from the root, such as "WakelatchCore/Models.h"; nothing for others.
std::optional<std::size_t> layerOf(const fs::path& file) {
  const std::string directory = file.begin()->string();
  if (directory == "Platform") return 0;
  if (directory == "Host") return componentsByLayer.size();
  if (directory != "WakelatchCore") return std::nullopt;
  for (std::size_t layer = 0; layer < componentsByLayer.size(); ++layer) {
    if (componentsByLayer[layer].count(file.stem().string()) > 0) return layer;
  }
  return std::nullopt;
}

TEST(Layers, IncludesOnlyPointDown) {
  const fs::path root = WAKELATCH_SOURCE_DIR;
  const std::regex include("#include \"([^\"]+)\"");
  int files = 0;
  for (const char* directory : {"Platform", "WakelatchCore", "Host"}) {
    for (const auto& entry : fs::recursive_directory_iterator(root / directory)) {
      const std::string extension = entry.path().extension().string();
      if (extension != ".h" && extension != ".cpp" && extension != ".mm") continue;
      const fs::path file = fs::relative(entry.path(), root);
      const auto layer = layerOf(file);
      ASSERT_TRUE(layer) << file << " is in no layer: add it to the table";
      const std::string text = platform::readFile(entry.path());
      for (std::sregex_iterator match(text.begin(), text.end(), include), end; match != end;
           ++match) {
        const auto target = layerOf(match->str(1));
        EXPECT_TRUE(target && *target <= *layer) << file << " includes " << match->str(1);
      }
      ++files;
    }
  }
  EXPECT_GT(files, 30);
}

}  // namespace
}  // namespace wakelatch
