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

TEST(SettingsFile, LiveSettingsFollowTheFileAndReportAProblemOnce) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "settings.json";
  LiveSettings settings(file);
  write(file, R"({"enableBrowsers":true})");
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_TRUE(settings.current().enableBrowsers);
  for (const std::string broken : {R"({"enableBrowsers":1})", "{"}) {
    write(file, broken);
    EXPECT_THAT(settings.refresh(), HasSubstr(file.string() + ": "));
    EXPECT_EQ(settings.refresh(), "");
    EXPECT_TRUE(settings.current().enableBrowsers) << "the last good settings stay in force";
  }
  std::filesystem::remove(file);
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_EQ(settings.current(), GuardSettings());
  std::filesystem::create_directory(file);
  EXPECT_THROW(loadSettings(file), std::runtime_error);
}

}  // namespace
}  // namespace wakelatch::host
