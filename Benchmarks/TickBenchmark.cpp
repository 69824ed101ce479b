// What a whole tick costs this process beside what its two `ps` runs cost, on a machine with 500
// processes or more and three terminals that show 64 KB each. Session files are left out.
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "Benchmarks/SideBySide.h"
#include "Tests/ScriptedAccessibility.h"
#include "WakelatchCore/ActivityDetector.h"

extern char** environ;

namespace {

using namespace wakelatch;

/// Processes that do nothing, ended with this object.
class Crowd {
 public:
  explicit Crowd(std::size_t count) {
    char name[] = "sleep", seconds[] = "600";
    char* arguments[] = {name, seconds, nullptr};
    for (std::size_t i = 0; i < count; ++i) {
      pid_t child = 0;
      if (::posix_spawn(&child, "/bin/sleep", nullptr, nullptr, arguments, environ) != 0) {
        std::abort();
      }
      children_.push_back(child);
    }
  }
  ~Crowd() {
    for (const pid_t child : children_) ::kill(child, SIGKILL);
    for (const pid_t child : children_) ::waitpid(child, nullptr, 0);
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

 private:
  std::vector<pid_t> children_;
};

struct NoFiles : FileActivityProbing {
  std::optional<Timestamp> newestModification(const std::vector<std::string>&) const override {
    return std::nullopt;
  }
};

double cpuMilliseconds(int who) {
  rusage usage{};
  ::getrusage(who, &usage);
  const auto milliseconds = [](timeval time) {
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
  };
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

/// What a terminal full of an agent's output shows, without any phrase that is looked for.
std::string terminalText(std::size_t size) {
  std::string text;
  for (int line = 1; text.size() < size; ++line) {
    text +=
        "│ " + std::to_string(line) + " │ const auto résumé = parse(input, options);  // ✔ OK\n";
  }
  return text;
}

}  // namespace

int main() {
  const Crowd crowd(500);
  ScriptedAccessibility screen;
  for (int i = 0; i < 3; ++i) screen.show("com.apple.Terminal", "Terminal", terminalText(65536));

  ProcessCommandRunner runner(10);
  ProcessDetector processes(runner);
  AccessibilityDetector texts(screen);
  NoFiles files;
  SessionActivityDetector sessions(files);
  ActivityDetector detector(processes, texts, sessions);
  const GuardSettings settings;

  // Both sides come from the same ticks: running ours leaves what the tools took meanwhile.
  double toolsCost = 0;
  const auto ownCost = [&] {
    constexpr int ticks = 5;
    const double own = cpuMilliseconds(RUSAGE_SELF), tools = cpuMilliseconds(RUSAGE_CHILDREN);
    for (int i = 0; i < ticks; ++i)
      detector.detectPerApp(settings, PowerSnapshot(), platform::now());
    toolsCost = (cpuMilliseconds(RUSAGE_CHILDREN) - tools) / ticks;
    return (cpuMilliseconds(RUSAGE_SELF) - own) / ticks;
  };
  bench::compare(
      "own CPU of a tick without file walks", "ms", ownCost, [&] { return toolsCost; }, 0.04, 9);
}
