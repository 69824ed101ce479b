#include "Host/SettingsFile.h"

#include <gtest/gtest.h>

#include <fstream>

#include "Tests/TemporaryFolder.h"

namespace wakelatch::host {
namespace {

void write(const std::filesystem::path& file, const std::string& text) {
  std::ofstream(file) << text;
}

TEST(SettingsFile, MissingMeansDefaultsAndAnythingElseWrongIsNamed) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  EXPECT_EQ(loadSettings(file), GuardSettings());

  const auto problem = [&] {
    try {
      loadSettings(file);
    } catch (const std::runtime_error& error) {
      return std::string(error.what());
    }
    return std::string("none");
  };
  write(file, R"({"batteryProfile":{"batteryCutoffPercent":"20"}})");
  EXPECT_NE(
      problem().find(file.string() + ": batteryProfile.batteryCutoffPercent: expected an integer"),
      std::string::npos);
  write(file, "{");
  EXPECT_NE(problem().find(file.string() + ": not JSON"), std::string::npos);
  std::filesystem::remove(file);
  std::filesystem::create_directory(file);
  EXPECT_NE(problem().find(file.string()), std::string::npos);
}

TEST(SettingsFile, LiveSettingsFollowTheFileAndReportAProblemOnce) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  LiveSettings settings(file);
  write(file, R"({"enableBrowsers":true})");
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_TRUE(settings.current().enableBrowsers);
  write(file, R"({"enableBrowsers":1})");
  EXPECT_NE(settings.refresh().find("enableBrowsers: expected true or false"), std::string::npos);
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_TRUE(settings.current().enableBrowsers) << "the last good settings stay in force";
  std::filesystem::remove(file);
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_FALSE(settings.current().enableBrowsers);
}

}  // namespace
}  // namespace wakelatch::host
