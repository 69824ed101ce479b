#include "Host/SettingsFile.h"

#include <gmock/gmock.h>

#include <fstream>

#include "Tests/TemporaryFolder.h"

namespace wakelatch::host {
namespace {

using testing::HasSubstr;

void write(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file) << text;
}

TEST(SettingsFile, AnythingWrongIsNamedWithTheFile) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  const auto expectProblem = [&](const std::string& problem) {
    try {
      loadSettings(file);
      ADD_FAILURE() << "no problem, not " << problem;
    } catch (const std::runtime_error& error) {
      EXPECT_THAT(error.what(), HasSubstr(file.string() + problem));
    }
  };
  write(file, R"({"batteryProfile":{"batteryCutoffPercent":"20"}})");
  expectProblem(": batteryProfile.batteryCutoffPercent: expected an integer");
  write(file, "{");
  expectProblem(": not JSON");
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  expectProblem("");
}

TEST(SettingsFile, LiveSettingsFollowTheFileAndReportAProblemOnce) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  LiveSettings settings(file);
  write(file, R"({"enableBrowsers":true})");
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_TRUE(settings.current().enableBrowsers);
  write(file, R"({"enableBrowsers":1})");
  EXPECT_THAT(settings.refresh(), HasSubstr("enableBrowsers: expected true or false"));
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_TRUE(settings.current().enableBrowsers) << "the last good settings stay in force";
  std::filesystem::remove(file);
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_EQ(settings.current(), GuardSettings());
}

}  // namespace
}  // namespace wakelatch::host
