#include "Host/SettingsFile.h"

#include <gmock/gmock.h>

#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {

using testing::HasSubstr;

TEST(SettingsFile, LiveSettingsFollowTheFile) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "settings.json";
  LiveSettings settings(file);
  platform::writeAtomically(file, R"({"enableBrowsers":true})");
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_TRUE(settings.current().enableBrowsers);
  for (const std::string broken : {R"({"enableBrowsers":1})", "{"}) {
    platform::writeAtomically(file, broken);
    EXPECT_THAT(settings.refresh(), HasSubstr(file.string() + ": "));
    EXPECT_TRUE(settings.current().enableBrowsers) << "the last good settings stay in force";
  }
  std::filesystem::remove(file);
  EXPECT_EQ(settings.refresh(), "");
  EXPECT_EQ(settings.current(), GuardSettings());
}

}  // namespace wakelatch::host
