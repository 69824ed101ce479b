// The cost of running a command, compared with the least that any program could do, both measured
// by turns in one run. Prints one line per goal.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <vector>

#include "WakelatchCore/ShellCommand.h"

extern char** environ;  // not declared on macOS

namespace {

using wakelatch::CommandRunnerError;
using wakelatch::ProcessCommandRunner;
using wakelatch::ShellCommand;

const ShellCommand trueCommand{"/usr/bin/true", {}};
/// Slightly less than the runner's limit.
const ShellCommand sixteenMegabytes{"/usr/bin/head", {"-c", "16000000", "/dev/zero"}};

double secondsFor(const std::function<void()>& action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The first quartile: affected less by other load than the median, and less by one lucky run than
/// the minimum.
double typical(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 4];
}

/// posix_spawn() and waitpid(), with `output` read and discarded between them.
void bareRun(const ShellCommand& command, bool readOutput) {
  std::vector<char*> argv{const_cast<char*>(command.executable.c_str())};
  for (const auto& argument : command.arguments)
    argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  int ends[2] = {-1, -1};
  if (readOutput) {
    if (::pipe(ends) != 0) std::abort();
    ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
  }
  pid_t id = 0;
  if (posix_spawn(&id, argv[0], &actions, nullptr, argv.data(), environ) != 0) std::abort();
  posix_spawn_file_actions_destroy(&actions);
  if (readOutput) {
    ::close(ends[1]);
    static char block[65536];
    while (::read(ends[0], block, sizeof block) > 0) {
    }
    ::close(ends[0]);
  }
  ::waitpid(id, nullptr, 0);
}

/// The ratio of our time to that of the bare system calls, measured by turns.
void compare(const char* name, const ShellCommand& command, bool readOutput, int rounds,
             double goal) {
  ProcessCommandRunner runner(60);
  std::vector<double> ours, bare;
  for (int i = 0; i < rounds; ++i) {
    bare.push_back(secondsFor([&] { bareRun(command, readOutput); }));
    ours.push_back(secondsFor([&] { runner.run(command); }));
  }
  std::printf("%-42s %9.3f ms, bare %9.3f ms: ratio %.2f (goal at most %.2f)\n", name,
              typical(ours) * 1e3, typical(bare) * 1e3, typical(ours) / typical(bare), goal);
}

void timeoutLateness() {
  constexpr double timeoutSeconds = 0.1;
  ProcessCommandRunner runner(timeoutSeconds);
  std::vector<double> late;
  for (int i = 0; i < 30; ++i) {
    late.push_back(secondsFor([&] {
                     try {
                       runner.run({"/bin/sleep", {"60"}});
                     } catch (const CommandRunnerError&) {
                     }
                   }) -
                   timeoutSeconds);
  }
  std::printf("%-42s typically %.2f ms, most %.2f ms (goal at most 5 ms)\n",
              "time-out noticed and child gone, late by", typical(late) * 1e3,
              *std::max_element(late.begin(), late.end()) * 1e3);
}

}  // namespace

int main() {
  compare("run /usr/bin/true", trueCommand, false, 1000, 1.15);
  constexpr std::size_t gigabyte = std::size_t{1} << 30;
  void* memory =
      ::mmap(nullptr, gigabyte, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) return 1;
  std::memset(memory, 1, gigabyte);
  compare("run /usr/bin/true, 1 GB resident", trueCommand, false, 1000, 1.15);
  ::munmap(memory, gigabyte);
  compare("capture 16 MB", sixteenMegabytes, true, 101, 2);
  timeoutLateness();
}
