// The cost of a whole tick for this process, compared with that of its two `ps` runs, on a machine
// with 500 processes or more and three terminals that show 64 KB each. Without session files.
#include <string>
#include <vector>

#include "Benchmarks/Crowd.h"
#include "Benchmarks/SideBySide.h"
#include "Tests/ScriptedAccessibility.h"
#include "WakelatchCore/ActivityDetector.h"

namespace {

using namespace wakelatch;

struct NoFiles : FileActivityProbing {
  std::optional<Timestamp> newestModification(const std::vector<std::string>&) const override {
    return std::nullopt;
  }
};

/// The text of a terminal full of an agent's output, without any phrase of the catalogue.
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
  const bench::Crowd crowd(500);
  ScriptedAccessibility screen;
  for (int i = 0; i < 3; ++i) screen.show("com.apple.Terminal", "Terminal", terminalText(65536));

  ProcessCommandRunner runner(10);
  ProcessDetector processes(runner);
  AccessibilityDetector texts(screen);
  NoFiles files;
  SessionActivityDetector sessions(files);
  ActivityDetector detector(processes, texts, sessions);
  const GuardSettings settings;

  // Both sides measure the same ticks: our side stores the time that the tools took.
  double toolsCost = 0;
  const auto ownCost = [&] {
    constexpr int ticks = 5;
    const double own = bench::cpuMilliseconds(RUSAGE_SELF),
                 tools = bench::cpuMilliseconds(RUSAGE_CHILDREN);
    for (int i = 0; i < ticks; ++i)
      detector.detectPerApp(settings, PowerSnapshot(), platform::now());
    toolsCost = (bench::cpuMilliseconds(RUSAGE_CHILDREN) - tools) / ticks;
    return (bench::cpuMilliseconds(RUSAGE_SELF) - own) / ticks;
  };
  bench::compare(
      "own CPU of a tick without file walks", "ms", ownCost, [&] { return toolsCost; }, 0.04, 9);
}
