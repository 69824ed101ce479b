// The cost of recording per tick on this machine, the time for replaying a recorded day, and the
// size of a recorded hour.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>

#include "Benchmarks/SideBySide.h"
#include "Host/AgentsFile.h"
#include "Host/OneTick.h"
#include "Host/StatusReport.h"
#include "Host/Tools.h"
#include "Host/trace/Recorder.h"
#include "Host/trace/Replay.h"
#include "Tests/ScriptedAccessibility.h"
#include "Tests/TemporaryDirectory.h"

namespace {

using namespace wakelatch;
using namespace wakelatch::host;

double cpuMilliseconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  const auto milliseconds = [](timeval time) {
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
  };
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

/// Own CPU of a tick of `watch --json --dry-run`, in milliseconds.
double tickCost(Observer& observer, Recorder* recorder) {
  constexpr int ticks = 4;
  AgentStateMachine machine;
  TickLines lines(/*isJSON=*/true);
  std::size_t written = 0;
  const double before = cpuMilliseconds();
  for (int i = 0; i < ticks; ++i) {
    const OneTick tick =
        decide(machine, AppMode::watchAgentUI, {}, false, observer.look({}, platform::now()));
    written += lines.next(makeStatusReport(tick), tick.seen.at)->size();
    if (recorder != nullptr) written += recorder->tick(tick.seen, {}, {}).size();
  }
  return written > 0 ? (cpuMilliseconds() - before) / ticks : 0;
}

/// An agent with nine helpers, three of which change their load in each tick.
struct Agent : CommandRunning, FileActivityProbing {
  int tick = 0;
  CommandResult run(const ShellCommand& command) override {
    if (command.executable != "/bin/ps") return {0, "Now drawing from 'AC Power'", ""};
    std::string text = command.arguments[1] == "pid=,args=" ? "100 claude -p x\n" : "";
    for (int i = 0; i < 10 && text.size() != 16; ++i) {
      const double cpu = i < 3 ? (tick * (i + 7) % 100) / 10. : 0;
      char row[64];
      std::snprintf(row, sizeof row, "%d %d %.1f %s\n", 100 + i, i == 0 ? 1 : 100, cpu,
                    i == 0 ? "claude" : "node");
      text += row;
    }
    return {0, text, ""};
  }
  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& globs) const override {
    if (globs[0] != ".claude/projects/**/*.jsonl") return std::nullopt;
    return after(Timestamp(), 1.7e9 + tick / 10 * 20 + 0.123456);
  }
};

}  // namespace

int main() {
  Tools tools({});
  const MachineSources machine(tools.runner());
  const AgentProfiles profiles = loadAgents({installedAgentsFile()}).profiles;
  Recorder recorder(machine.sources(), {.pid = {}, .profiles = profiles});
  recorder.header({}, platform::now());
  Observer plain(machine.sources(), profiles), recorded(recorder.sources(), profiles);
  bench::compare(
      "own CPU of a tick with recording against one without", "ms",
      [&] { return tickCost(recorded, &recorder); }, [&] { return tickCost(plain, nullptr); }, 1.1,
      25);

  constexpr int day = 24 * 60 * 60 / 2;
  const TemporaryHome home;
  const std::filesystem::path file = home.path() / "day";
  {
    Agent agent;
    ScriptedAccessibility none;
    TurnReader turns(agent);
    Recorder writer({[] {}, agent, none, agent, turns, [] { return ThermalState::nominal; }}, {});
    Observer observer(writer.sources(), {});
    std::ofstream trace(file);
    trace << writer.header({}, platform::fromMilliseconds(1'700'000'000'000)) << '\n';
    for (; agent.tick < day; ++agent.tick) {
      const Timestamp now = platform::fromMilliseconds(1'700'000'000'000 + 2000LL * agent.tick);
      trace << writer.tick(observer.look({}, now), {}, {}) << '\n';
    }
  }
  std::printf("an hour of a busy agent: %.0f KB (goal at most 200)\n",
              static_cast<double>(std::filesystem::file_size(file)) / 24 / 1000);
  bench::compare(
      "a day replayed against two seconds", "s",
      [&] {
        const double before = cpuMilliseconds();
        Replay replay(file, {});
        while (replay.next()) {
        }
        return (cpuMilliseconds() - before) / 1000;
      },
      [] { return 2.0; }, 1, 5);
}
