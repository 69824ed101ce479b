#include "WakelatchCore/FileLogger.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <sstream>
#include <thread>

#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "Tests/TemporaryFolder.h"

namespace wakelatch {
namespace {

using ::testing::ExitedWithCode;
using ::testing::MatchesRegex;

/// The messages of the lines in `file`, each without its timestamp.
std::vector<std::string> messages(const std::filesystem::path& file) {
  std::istringstream lines(platform::readFile(file));
  std::vector<std::string> found;
  for (std::string line; std::getline(lines, line);) found.push_back(line.substr(23));
  return found;
}

TEST(FileLogger, AppendsDatedLinesInCallOrder) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "new" / "folders" / "test.log";
  const std::string before = platform::iso8601(platform::now());
  {
    FileLogger logger(file);
    EXPECT_EQ(logger.logURL(), file);
    logger.log("one");
    logger.log("two\nlines é");
  }
  FileLogger(file).log("later");
  const std::string text = platform::readFile(file);
  const std::string stamp = "\\[[0-9]+-[0-9]+-[0-9]+T[0-9]+:[0-9]+:[0-9]+Z\\] ";
  EXPECT_THAT(text, MatchesRegex(stamp + "one\n" + stamp + "two\nlines é\n" + stamp + "later\n"));
  EXPECT_LE(before, text.substr(1, before.size()));
}

TEST(FileLogger, LosesOnlyTheLinesThatCannotBeWritten) {
  const TemporaryFolder temporary;
  const auto folder = temporary.path();
  platform::append(folder / "file", "a file, no folder\n");
  FileLogger(folder / "file" / "test.log").log("lost");
  FileLogger(folder).log("lost");  // the log's own place is a folder
  EXPECT_EQ(platform::readFile(folder / "file"), "a file, no folder\n");
  {
    FileLogger logger(folder / "moved" / "test.log");
    logger.log("first");
  }
  std::filesystem::remove_all(folder / "moved");
  FileLogger(folder / "moved" / "test.log").log("second");
  EXPECT_THAT(messages(folder / "moved" / "test.log"), ::testing::ElementsAre("second"));
}

TEST(FileLogger, KeepsTheOrderOfEveryThread) {
  const TemporaryFolder folder;
  const auto file = folder.path() / "test.log";
  constexpr int threadCount = 8, lineCount = 500;
  {
    FileLogger logger(file);
    std::vector<std::thread> threads;
    for (int t = 0; t < threadCount; ++t) {
      threads.emplace_back([&logger, t] {
        for (int i = 0; i < lineCount; ++i) {
          logger.log(std::to_string(t) + " " + std::to_string(i));
        }
      });
    }
    for (auto& thread : threads) thread.join();
  }
  std::map<int, int> next;
  for (const auto& message : messages(file)) {
    std::istringstream fields(message);
    int thread = -1, number = -1;
    fields >> thread >> number;
    EXPECT_EQ(number, next[thread]++);
  }
  EXPECT_EQ(next.size(), threadCount);
  for (const auto& [thread, count] : next) EXPECT_EQ(count, lineCount) << thread;
}

/// Logs from a destructor that runs after the shared logger's own end of service.
struct LogsLate {
  ~LogsLate() { FileLogger::shared().log("late"); }
};

TEST(FileLoggerDeathTest, SharedWritesAllThatWasLoggedBeforeExit) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  // A fixed place, because the test starts anew in the process that logs.
  const auto home = std::filesystem::path(::testing::TempDir()) / "FileLoggerTest";
  std::filesystem::remove_all(home);
  EXPECT_EXIT(
      {
        ::setenv("HOME", home.c_str(), 1);
        static const LogsLate logsLate;
        for (int i = 0; i < 2000; ++i) FileLogger::shared().log("line");
        std::exit(0);
      },
      ExitedWithCode(0), "");
  EXPECT_GE(messages(home / "Library/Logs/Wakelatch.log").size(), 2000u);
  std::filesystem::remove_all(home);
}

}  // namespace
}  // namespace wakelatch
