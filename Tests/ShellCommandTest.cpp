#include "WakelatchCore/ShellCommand.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "Platform/ChildProcess.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch {
namespace {

using ::testing::AnyOf, ::testing::HasSubstr;

ShellCommand shell(const std::string& script) {
  return {"/bin/sh", {"-c", script}};
}

/// The result of a run, whether it was returned or thrown.
CommandResult outcome(const ShellCommand& command, double timeoutSeconds = 60) try {
  return ProcessCommandRunner(timeoutSeconds).run(command);
} catch (const CommandRunnerError& error) {
  EXPECT_FALSE(error.result().succeeded());
  return error.result();
}

TEST(CommandRunner, CollectsStatusAndBothStreamsOfAnyChild) {
  const std::string flood = "head -c 300000 /dev/zero | tr '\\0' x", flooded(300000, 'x');
  const std::string mostThatIsKept(16U << 20, '\0');
  const std::string loop = "while :; do sleep 0.02; done";
  const struct {
    std::string script;
    CommandResult expected;
    double timeout = 60, atLeast = 0;  ///< seconds
  } rows[] = {
      {"printf out; printf err >&2; exit 1", {1, "out", "err"}},
      {"kill -9 $$", {9, "", ""}},
      {"printf 'a\\377b'; printf 'g\\303\\274t' >&2", {0, "", "güt"}},
      {"printf ok; printf '\\355\\240\\200' >&2; exit 4", {4, "ok", ""}},
      {"printf before; exec >&- 2>&-; sleep 0.2; exit 3", {3, "before", ""}},
      {flood + " >&2; " + flood, {0, flooded, flooded}},
      {"head -c 16777216 /dev/zero", {0, mostThatIsKept, ""}},
      // From here on the time-out ends it: SIGTERM, after 0.2 s SIGINT, after 2 s SIGKILL.
      {"echo ready; exec sleep 60", {SIGTERM, "ready\n", ""}, 0.5, 0.5},
      {"exec sleep 60", {SIGTERM, "", ""}, -1},
      {"trap \"" + flood + "; exit 0\" TERM; " + loop, {0, flooded, ""}, 0.5, 0.5},
      {"trap 'echo t' TERM; trap 'echo i; exit 7' INT; " + loop, {7, "t\ni\n", ""}, 0.5, 0.7},
      {"trap '' TERM INT; echo ready; " + loop, {SIGKILL, "ready\n", ""}, 0.5, 2.7}};
  for (const auto& row : rows) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(outcome(shell(row.script), row.timeout), row.expected) << row.script;
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    EXPECT_TRUE(taken.count() >= row.atLeast && taken.count() < 30) << row.script;
  }
  EXPECT_EQ(outcome({"/bin/echo", {"a b", "$HOME", "", "*"}}).standardOutput, "a b $HOME  *\n");
}

TEST(CommandRunner, ErrorsSayWhatWentWrong) {
  for (const char* path : {"/nonexistent/tool", "/etc", "/etc/passwd"})
    EXPECT_THROW(ProcessCommandRunner(60).run({path, {}}), platform::LaunchError) << path;
  const auto text = [](int code, const std::string& standardError) {
    return std::string(CommandRunnerError::nonZeroExit({code, "out", standardError}).what());
  };
  EXPECT_EQ(text(1, ""), "exit code 1");
  EXPECT_EQ(text(15, "\n  first line \nsecond\n"), "exit code 15: first line");
  EXPECT_EQ(text(2, std::string(1000, 'x')), "exit code 2: " + std::string(200, 'x'));
  EXPECT_THAT(text(CommandResult::unknownExitCode, ""), HasSubstr("SIGCHLD"));
}

TEST(CommandRunner, DoesNotWaitForGrandchildrenThatHoldThePipes) {
  for (const std::string grandchild : {"sleep 60", "yes"}) {
    const CommandResult finished = outcome(shell(grandchild + " & echo $! >&2"), 30);
    EXPECT_EQ(finished.exitCode, 0) << grandchild;
    EXPECT_EQ(::kill(std::stoi(finished.standardError), SIGKILL), 0) << grandchild;
  }
}

TEST(CommandRunnerDeathTest, WorksWithAnyDescriptorsAndSignalsOfTheHost) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const TemporaryHome home;
  const auto report = [&] {
    int input[2];
    if (::pipe(input) != 0 || ::write(input[1], "hello\n", 6) != 6) ::_exit(2);
    for (const int copy : {STDIN_FILENO, 9})
      if (::dup2(input[0], copy) < 0) ::_exit(2);  // not close-on-exec
    sigset_t all;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
    ::signal(SIGINT, SIG_IGN);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) ::close(stream);
    const std::string directory = std::filesystem::current_path();
    const CommandResult expected{SIGINT, home.path().string() + " " + directory + " hello", ""};
    ::_exit(outcome(shell("read word; printf '%s %s %s' \"$HOME\" \"$PWD\" $word; "
                          "[ ! -e /dev/fd/9 ] || echo open; kill -INT $$")) == expected
                ? 0
                : 1);
  };
  EXPECT_EXIT(report(), ::testing::ExitedWithCode(0), "");
}

TEST(CommandRunner, WorksInAHostThatIgnoresItsChildren) {
  ::signal(SIGCHLD, SIG_IGN);
  const CommandResult slow = outcome(shell("echo out; sleep 0.1; exit 3"));
  const CommandResult late = outcome(shell("exec sleep 60"), 0.1);
  for (int i = 0; i < 200; ++i) outcome({"/usr/bin/true", {}}, 30);
  ::signal(SIGCHLD, SIG_DFL);
  EXPECT_EQ(slow.standardOutput, "out\n");  // the status only where the system keeps it
  EXPECT_THAT(slow.exitCode, AnyOf(3, CommandResult::unknownExitCode));
  EXPECT_THAT(late.exitCode, AnyOf(SIGTERM, CommandResult::unknownExitCode));
}

TEST(CommandRunner, TenThousandRunsOnTenThreadsLeaveNothingBehind) {
  const auto entries = [](const char* directory) {
    std::error_code noSuchDirectory;
    return std::distance(std::filesystem::directory_iterator(directory, noSuchDirectory), {});
  };
  std::thread([] {}).join();  // with the first one a sanitizer starts one of its own
  const auto descriptors = entries("/dev/fd"), threadsBefore = entries("/proc/self/task");
  ProcessCommandRunner runner(60);
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (const std::string name : {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j"})
    threads.emplace_back([&runner, &right, name] {
      for (int i = 0; i < 1000; ++i)
        right += runner.run({"/bin/echo", {name}}).standardOutput == name + "\n";
    });
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(right, 10'000);
  EXPECT_EQ(entries("/dev/fd"), descriptors);
  EXPECT_EQ(entries("/proc/self/task"), threadsBefore);
  EXPECT_TRUE(::waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD);
}

}  // namespace
}  // namespace wakelatch
