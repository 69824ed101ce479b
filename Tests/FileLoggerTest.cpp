#include "WakelatchCore/FileLogger.h"

#include <gmock/gmock.h>

#include <map>
#include <sstream>
#include <thread>

#include "Platform/Files.h"
#include "Tests/TemporaryFolder.h"

namespace wakelatch {

TEST(FileLogger, AppendsDatedLinesAndLosesThoseItCannotWrite) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "new" / "folders" / "test.log";
  FileLogger(file).log("one");
  FileLogger(file).log("two\nlines é");
  FileLogger(file / "below a file").log("lost");
  FileLogger(folder.path()).log("lost");
  const std::string stamp = "\\[[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z\\] ";
  const std::string expected = stamp + "one\n" + stamp + "two\nlines é\n";
  EXPECT_THAT(platform::readFile(file), testing::MatchesRegex(expected));
}

TEST(FileLogger, KeepsTheOrderOfEveryThread) {
  const TemporaryFolder folder;
  {
    FileLogger logger(folder.path() / "test.log");
    const auto work = [&logger](char name) {
      for (int i = 0; i < 1000; ++i) logger.log(name + std::to_string(i));
    };
    std::thread other(work, 'b');
    work('a');
    other.join();
  }
  std::map<char, int> next;
  std::istringstream lines(platform::readFile(folder.path() / "test.log"));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_EQ(line.substr(24), std::to_string(next[line.at(23)]++));  // after stamp and name
  }
  EXPECT_EQ(next, (std::map<char, int>{{'a', 1000}, {'b', 1000}}));
}

}  // namespace wakelatch
