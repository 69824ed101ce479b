// The process detector's own work, compared with the two `ps` runs that it needs, and its growth
// with the number of processes, their nesting and the length of their arguments.
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "Benchmarks/SideBySide.h"
#include "Platform/Descriptor.h"
#include "WakelatchCore/ProcessDetector.h"

extern char** environ;  // not declared on macOS

namespace {

using wakelatch::CommandResult;
using wakelatch::ShellCommand;

double cpuSeconds(int who) {
  rusage usage{};
  ::getrusage(who, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// The output of a `ps` command.
std::string run(const ShellCommand& command) {
  std::vector<char*> arguments = {const_cast<char*>(command.executable.c_str())};
  for (const auto& argument : command.arguments) {
    arguments.push_back(const_cast<char*>(argument.c_str()));
  }
  arguments.push_back(nullptr);
  wakelatch::platform::Pipe pipe = wakelatch::platform::openPipe();
  pid_t child = 0;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe.writeEnd.get(), STDOUT_FILENO);
  if (::posix_spawn(&child, arguments[0], &actions, nullptr, arguments.data(), environ) != 0) {
    std::abort();
  }
  posix_spawn_file_actions_destroy(&actions);
  pipe.writeEnd.close();
  std::string output;
  char buffer[65536];
  for (ssize_t got = 0; (got = ::read(pipe.readEnd.get(), buffer, sizeof buffer)) > 0;) {
    output.append(buffer, static_cast<std::size_t>(got));
  }
  ::waitpid(child, nullptr, 0);
  return output;
}

const ShellCommand processListing{"/bin/ps", {"-axo", "pid=,ppid=,pcpu=,comm="}};
const ShellCommand argumentListing{"/bin/ps", {"-axo", "pid=,args="}};

struct Listings {
  std::string processes, arguments;

  void add(int pid, int parent, const std::string& command, const std::string& args) {
    processes += std::to_string(pid) + ' ' + std::to_string(parent) + " 1.5 " + command + '\n';
    arguments += std::to_string(pid) + ' ' + args + '\n';
  }
};

/// Returns prepared listings without copying them.
struct ListingRunner : wakelatch::CommandRunning {
  Listings next;
  CommandResult run(const ShellCommand& command) override {
    const bool first = command == processListing;
    return {0, std::move(first ? next.processes : next.arguments), ""};
  }
};

/// CPU seconds of one pass over the listings: the minimum of `passes`.
double passSeconds(const Listings& listings, int passes = 1) {
  ListingRunner runner;
  wakelatch::ProcessDetector detector(runner);
  const wakelatch::GuardSettings settings;
  double least = 1e9;
  for (int pass = 0; pass < passes; ++pass) {
    runner.next = listings;
    const double start = cpuSeconds(RUSAGE_SELF);
    if (detector.detectPerApp(settings, {}).empty()) std::abort();  // all have agents
    least = std::min(least, cpuSeconds(RUSAGE_SELF) - start);
  }
  return least;
}

/// Processes like those of a busy machine: shells and services, and every tenth one an agent.
Listings flatProcesses(int count) {
  Listings listings;
  for (int i = 0; i < count; ++i) {
    const std::string command = i % 10 == 0  ? "/usr/local/bin/node"
                                : i % 3 == 0 ? "/Applications/Some App.app/Contents/MacOS/Some App"
                                             : "/usr/libexec/service" + std::to_string(i);
    const std::string arguments =
        i % 10 == 0 ? " /opt/tools/bin/codex --full-auto" : " --daemon -v";
    listings.add(100 + i, i % 4 == 0 ? 1 : 100 + i / 2, command, command + arguments);
  }
  return listings;
}

/// A chain of agents, each started by the previous one.
Listings nestedAgents(int count) {
  Listings listings;
  for (int i = 0; i < count; ++i) {
    listings.add(100 + i, i == 0 ? 1 : 99 + i, "/usr/local/bin/claude", "claude --resume");
  }
  return listings;
}

/// A thousand processes, a quarter of them agents with a prompt of 100 KB.
Listings longPrompts() {
  Listings listings;
  std::string prompt;
  while (prompt.size() < 100'000) {
    prompt +=
        "Find out why the last line is lost when src/parser.cpp reads a listing, and fix it. ";
  }
  for (int i = 0; i < 1000; ++i) {
    if (i % 4 == 0) {
      listings.add(100 + i, 1, "/usr/local/bin/node", "node /opt/codex " + prompt);
    } else {
      listings.add(100 + i, 1, "/bin/zsh", "-zsh");
    }
  }
  return listings;
}

/// Sleeping children, so that `ps` lists at least this many processes; they end with this object.
class Sleepers {
 public:
  explicit Sleepers(int count) {
    for (int i = 0; i < count; ++i) {
      const pid_t child = ::fork();
      if (child < 0) break;
      if (child == 0) {
        ::alarm(600);
        for (;;) ::pause();
      }
      children_.push_back(child);
    }
  }
  ~Sleepers() {
    for (const pid_t child : children_) {
      ::kill(child, SIGKILL);
      ::waitpid(child, nullptr, 0);
    }
  }
  Sleepers(const Sleepers&) = delete;
  Sleepers& operator=(const Sleepers&) = delete;

 private:
  std::vector<pid_t> children_;
};

}  // namespace

int main() {
  using wakelatch::bench::compare;
  {
    const Sleepers sleepers(600);
    Listings listings;
    const auto bothRuns = [&] {
      const double start = cpuSeconds(RUSAGE_CHILDREN);
      listings.processes = run(processListing);
      listings.arguments = run(argumentListing);
      return 1e3 * (cpuSeconds(RUSAGE_CHILDREN) - start);
    };
    bothRuns();
    const auto ours = [&] {
      Listings withAgent = listings;
      withAgent.add(1 << 30, 1, "claude", "claude");
      return 1e3 * passSeconds(withAgent, 3);
    };
    compare("own work against two ps runs, 600 processes and more", "ms CPU", ours, bothRuns, 0.02);
  }

  const auto perProcess = [](const Listings& listings, int count, int passes) {
    return [&listings, count, passes] { return 1e9 * passSeconds(listings, passes) / count; };
  };
  const Listings thousand = flatProcesses(1000), many = flatProcesses(30'000);
  const Listings chain = nestedAgents(4000);
  compare("30,000 processes against 1,000, each", "ns", perProcess(many, 30'000, 1),
          perProcess(thousand, 1000, 10), 1.5);
  compare("a chain of 4,000 agents against 1,000 flat, each", "ns", perProcess(chain, 4000, 5),
          perProcess(thousand, 1000, 10), 1.5);

  const Listings prompts = longPrompts();
  std::string copy(prompts.arguments.size(), ' ');
  const auto memcpyMilliseconds = [&] {
    const double start = cpuSeconds(RUSAGE_SELF);
    std::memcpy(copy.data(), prompts.arguments.data(), prompts.arguments.size());
    asm volatile("" : : "r"(copy.data()) : "memory");
    return 1e3 * (cpuSeconds(RUSAGE_SELF) - start);
  };
  compare(
      "1,000 processes, a quarter with 100 KB arguments, against memcpy of the text", "ms",
      [&] { return 1e3 * passSeconds(prompts); }, memcpyMilliseconds, 10);
}
