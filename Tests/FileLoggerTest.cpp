#include "WakelatchCore/FileLogger.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <sstream>
#include <thread>

#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch {

TEST(FileLogger, AppendsDatedLinesAndLosesThoseItCannotWrite) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "new" / "directories" / "test.log";
  const mode_t before = ::umask(027);
  FileLogger(file).log("one");
  FileLogger(file).log("two\nlines é");
  FileLogger(file / "below a file").log("lost");
  FileLogger(directory.path()).log("lost");
  ::umask(before);
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0640));
  const std::string stamp = "\\[[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z\\] ";
  const std::string expected = stamp + "one\n" + stamp + "two\nlines é\n";
  EXPECT_THAT(platform::readFile(file), testing::MatchesRegex(expected));
}

TEST(FileLogger, KeepsTheOrderOfEveryThread) {
  const TemporaryDirectory directory;
  {
    FileLogger logger(directory.path() / "test.log");
    const auto work = [&logger](char name) {
      for (int i = 0; i < 1000; ++i) logger.log(name + std::to_string(i));
    };
    std::thread other(work, 'b');
    work('a');
    other.join();
  }
  int next[2] = {};
  std::istringstream lines(platform::readFile(directory.path() / "test.log"));
  for (std::string line; std::getline(lines, line);)
    EXPECT_EQ(line.substr(24), std::to_string(next[line.at(23) - 'a']++));  // after stamp and name
  EXPECT_TRUE(next[0] == 1000 && next[1] == 1000);
}

}  // namespace wakelatch
