#include "WakelatchCore/ShellCommand.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "Platform/ChildProcess.h"
#include "Platform/Descriptor.h"
#include "Platform/Utf8.h"

namespace wakelatch {
namespace {

using ::testing::AnyOf;
using ::testing::HasSubstr;

ShellCommand shell(const std::string& script) {
  return {"/bin/sh", {"-c", script}};
}

/// The result of a run, whether it was returned or thrown.
CommandResult outcome(const ShellCommand& command, double timeoutSeconds = 60) {
  try {
    CommandResult result = ProcessCommandRunner(timeoutSeconds).run(command);
    EXPECT_TRUE(result.succeeded());
    return result;
  } catch (const CommandRunnerError& error) {
    EXPECT_FALSE(error.result().succeeded());
    return error.result();
  }
}

int descriptorCount() {
  int count = 0;
  for (int fd = 0; fd < 1024; ++fd) count += ::fcntl(fd, F_GETFD) >= 0 ? 1 : 0;
  return count;
}

bool hasChildren() {
  return ::waitpid(-1, nullptr, WNOHANG) >= 0 || errno != ECHILD;
}

TEST(CommandRunner, CollectsStatusAndBothStreams) {
  const std::string flood = "head -c 300000 /dev/zero | tr '\\0' x";
  const std::string flooded(300000, 'x');
  const struct {
    std::string script;
    CommandResult expected;
  } rows[] = {
      {"exit 0", {0, "", ""}},
      {"printf out; printf err >&2; exit 1", {1, "out", "err"}},
      {"exit 255", {255, "", ""}},
      {"kill -9 $$", {9, "", ""}},
      {"printf 'a\\377b'; printf 'g\\303\\274t' >&2", {0, "", "güt"}},
      {"printf ok; printf '\\303' >&2; exit 4", {4, "ok", ""}},
      {"printf 'a\\000b'", {0, std::string("a\0b", 3), ""}},
      {"printf before; exec >&- 2>&-; sleep 0.2; exit 3", {3, "before", ""}},
      {flood + " >&2; " + flood, {0, flooded, flooded}},
  };
  for (const auto& row : rows) EXPECT_EQ(outcome(shell(row.script)), row.expected) << row.script;
  EXPECT_EQ(outcome({"/bin/echo", {"a b", "$HOME", "", "*"}}).standardOutput, "a b $HOME  *\n");
}

TEST(CommandRunner, NamesPathAndCauseOfAFailedLaunch) {
  const auto folder = std::filesystem::path(::testing::TempDir());
  const int before = descriptorCount();
  for (const auto& [path, cause] : {std::pair<std::string, std::errc>{
                                        "/nonexistent/tool", std::errc::no_such_file_or_directory},
                                    {folder.string(), std::errc::permission_denied},
                                    {"/etc/passwd", std::errc::permission_denied}}) {
    try {
      ProcessCommandRunner(60).run({path, {}});
      ADD_FAILURE() << path;
    } catch (const platform::LaunchError& error) {
      EXPECT_EQ(error.code(), cause);
      EXPECT_THAT(error.what(), HasSubstr("cannot start " + path + ": "));
    }
  }
  EXPECT_EQ(descriptorCount(), before);
}

TEST(CommandRunner, ErrorTextHoldsCodeAndFirstLineOfStandardError) {
  const std::pair<CommandResult, std::string> rows[] = {
      {{1, "out", ""}, "exit code 1"},
      {{15, "", "\n  first line \nsecond\n"}, "exit code 15: first line"},
      {{2, "", std::string(1000, 'x')}, "exit code 2: " + std::string(200, 'x')},
  };
  for (const auto& [given, text] : rows) {
    EXPECT_EQ(CommandRunnerError::nonZeroExit(given).what(), text);
  }
}

TEST(CommandRunner, EscalatesSignalsAfterTheTimeOut) {
  const std::string loop = "while :; do sleep 0.02; done";
  const struct {
    std::string script;
    double timeout, least;
    CommandResult expected;
  } rows[] = {
      {"echo ready; exec sleep 60", 0.5, 0.5, {SIGTERM, "ready\n", ""}},
      {"trap 'exit 0' TERM; " + loop, 0.5, 0.5, {0, "", ""}},
      {"trap 'echo term' TERM; trap 'echo int; exit 7' INT; " + loop,
       0.5,
       0.7,
       {7, "term\nint\n", ""}},
      {"trap '' TERM INT; echo ready; " + loop, 0.5, 2.7, {SIGKILL, "ready\n", ""}},
      {"trap 'head -c 300000 /dev/zero | tr \"\\0\" x; exit 5' TERM; " + loop,
       0.5,
       0.5,
       {5, std::string(300000, 'x'), ""}},
      {"exec sleep 60", 0, 0, {SIGTERM, "", ""}},
      {"exec sleep 60", -1, 0, {SIGTERM, "", ""}},
  };
  for (const auto& row : rows) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome(shell(row.script), row.timeout), row.expected) << row.script;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_GE(taken.count(), row.least) << row.script;
    EXPECT_LT(taken.count(), 30) << row.script;
  }
}

TEST(CommandRunner, DoesNotWaitForGrandchildrenThatHoldThePipes) {
  for (const std::string grandchild : {"sleep 60", "yes"}) {
    const CommandResult finished = outcome(shell(grandchild + " & echo $! >&2"), 30);
    EXPECT_EQ(finished.exitCode, 0) << grandchild;
    EXPECT_EQ(::kill(std::stoi(finished.standardError), SIGKILL), 0) << grandchild;
  }
}

TEST(CommandRunner, ChildInheritsFolderEnvironmentAndInputAndNothingElse) {
  const int leaky = ::open("/dev/null", O_RDONLY);  // not close-on-exec
  platform::Descriptor savedInput(::dup(STDIN_FILENO));
  int input[2];
  ASSERT_EQ(::pipe(input), 0);
  ASSERT_EQ(::write(input[1], "hello", 5), 5);
  ::dup2(input[0], STDIN_FILENO);
  for (const int end : input) ::close(end);
  ::setenv("WAKELATCH_TEST_VALUE", "42", 1);
  sigset_t all, before;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  for (const int ignored : {SIGINT, SIGPIPE, SIGHUP}) ::signal(ignored, SIG_IGN);

  const CommandResult report = outcome({WAKELATCH_CHILDREN_DIR "/SpawnReport", {}});

  for (const int ignored : {SIGINT, SIGPIPE, SIGHUP}) ::signal(ignored, SIG_DFL);
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  ::dup2(savedInput.get(), STDIN_FILENO);
  ::close(leaky);
  EXPECT_EQ(report.standardOutput,
            "value 42\nfolder " + std::filesystem::current_path().string() + "\ninput hello");
}

TEST(CommandRunner, WorksInAHostThatIgnoresItsChildren) {
  ::signal(SIGCHLD, SIG_IGN);
  const CommandResult slow = outcome(shell("echo out; sleep 0.1; exit 3"));
  const CommandResult late = outcome(shell("exec sleep 60"), 0.1);
  for (int i = 0; i < 200; ++i) outcome({"/bin/true", {}}, 30);
  ::signal(SIGCHLD, SIG_DFL);
  // The true status where the system has kept it, else a failure that says why.
  EXPECT_EQ(slow.standardOutput, "out\n");
  EXPECT_THAT(slow.exitCode, AnyOf(3, CommandResult::unknownExitCode));
  EXPECT_THAT(late.exitCode, AnyOf(SIGTERM, CommandResult::unknownExitCode));
  EXPECT_THAT(CommandRunnerError::nonZeroExit({CommandResult::unknownExitCode, "", ""}).what(),
              HasSubstr("SIGCHLD"));
}

TEST(CommandRunnerDeathTest, WorksInAHostWithoutStandardStreams) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto runAndLeave = [] {
    for (int fd = 0; fd < 3; ++fd) ::close(fd);
    const CommandResult expected{0, "out\n", "err\n"};
    ::_exit(outcome(shell("echo out; echo err >&2")) == expected ? 0 : 1);
  };
  EXPECT_EXIT(runAndLeave(), ::testing::ExitedWithCode(0), "");
}

TEST(CommandRunner, TenThousandRunsOnTenThreadsLeaveNothingBehind) {
  const auto threadCount = [] {
    const std::filesystem::path tasks = "/proc/self/task";  // where there is one
    std::error_code none;
    return std::distance(std::filesystem::directory_iterator(tasks, none), {});
  };
  const int descriptorsBefore = descriptorCount();
  const auto threadsBefore = threadCount();
  ProcessCommandRunner runner(60);
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 10; ++t) {
    threads.emplace_back([&runner, &right, t] {
      for (int i = 0; i < 1000; ++i) {
        const std::string token = std::to_string(t) + "-" + std::to_string(i);
        right += runner.run({"/bin/echo", {token}}).standardOutput == token + "\n" ? 1 : 0;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(right, 10'000);
  EXPECT_EQ(descriptorCount(), descriptorsBefore);
  EXPECT_EQ(threadCount(), threadsBefore);
  EXPECT_FALSE(hasChildren());
}

TEST(Utf8, ValidAndInvalidSequences) {
  for (const std::string_view valid :
       {"", "plain ASCII of more than eight bytes", "é ü \u20AC \U0001F600 \uFFFF",
        "\xF4\x8F\xBF\xBF", "\xED\x9F\xBF\xEE\x80\x80"}) {
    EXPECT_TRUE(platform::isValidUtf8(valid)) << valid;
  }
  // Stray, missing, overlong, surrogate, too large.
  for (const std::string_view invalid :
       {"\x80", "\xFF", "12345678\xC3", "\xC3(", "\xE2\x82", "\xE2\x82x", "\xC0\x80",
        "\xE0\x9F\xBF", "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80"}) {
    EXPECT_FALSE(platform::isValidUtf8(invalid)) << ::testing::PrintToString(invalid);
  }
}

}  // namespace
}  // namespace wakelatch
