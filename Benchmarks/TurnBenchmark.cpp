// The cost of turn records, with eight agents and 20,000 session files: a look with the installed
// catalogue and the file probe of a watch, compared with a look with the built-in agents and a walk
// for their files.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Benchmarks/SideBySide.h"
#include "Host/AgentsFile.h"
#include "Host/LookFiles.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/ActivityDetector.h"
#include "WakelatchCore/WatchingFileProbe.h"

extern char** environ;

namespace {

using namespace wakelatch;
namespace fs = std::filesystem;

constexpr const char* names[] = {"claude",   "codex", "gemini", "copilot",
                                 "opencode", "grok",  "qwen",   "pi"};

/// Lists processes of this benchmark as eight agents.
class EightAgents : public CommandRunning {
 public:
  EightAgents() {
    char program[] = "sleep", seconds[] = "600";
    char* arguments[] = {program, seconds, nullptr};
    for (const char* name : names) {
      pid_t child = 0;
      if (::posix_spawn(&child, "/bin/sleep", nullptr, nullptr, arguments, environ) != 0) continue;
      children_.push_back(child);
      usage_ += std::to_string(child) + " 1 0.5 " + name + "\n";
      arguments_ += std::to_string(child) + " " + name + "\n";
    }
  }
  ~EightAgents() override {
    for (const pid_t child : children_) ::kill(child, SIGKILL);
    for (const pid_t child : children_) ::waitpid(child, nullptr, 0);
  }
  CommandResult run(const ShellCommand& command) override {
    return {0, command.arguments[1] == "pid=,args=" ? arguments_ : usage_, ""};
  }

 private:
  std::vector<pid_t> children_;
  std::string usage_, arguments_;
};

void fill(const fs::path& home) {
  for (int i = 0; i < 20000; ++i) {
    writeFile(home / ".claude/projects" / ("p" + std::to_string(i % 200)) /
                  (std::to_string(i) + ".jsonl"),
              "{}\n");
  }
  const std::string noise(60000, ' ');
  writeFile(home / ".claude/sessions/1.json", R"({"status":"busy"})");
  writeFile(home / ".codex/sessions/2026/11/23/rollout-1.jsonl",
            R"({"type":"event_msg","payload":{"type":"task_started"}})" + noise + "\n");
  writeFile(home / ".gemini/tmp/p/chats/session-1.jsonl", R"({"type":"user"})" + noise + "\n");
  writeFile(home / ".copilot/session-state/1/events.jsonl",
            R"({"type":"assistant.turn_start"})" + noise + "\n");
  writeFile(home / ".grok/sessions/p/1/events.jsonl", R"({"type":"turn_started"})" + noise + "\n");
  writeFile(home / ".qwen/projects/p/chats/1.jsonl", R"({"type":"user"})" + noise + "\n");
  writeFile(home / ".pi/agent/sessions/p/1.jsonl", R"({"message":{"role":"user"}})" + noise + "\n");
}

double cpuSeconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// The detectors, with or without turn records.
class Looking {
 public:
  Looking(CommandRunning& tools, const FileActivityProbing& files, TurnDetector* turns,
          const AgentProfiles& profiles)
      : processes_(tools, profiles),
        sessions_(files, profiles),
        activity_(processes_, texts_, sessions_, turns, profiles) {}

  /// Milliseconds of CPU.
  double look() {
    const double start = cpuSeconds();
    activity_.detect({}, {}, platform::now());
    return 1e3 * (cpuSeconds() - start);
  }

 private:
  ProcessDetector processes_;
  AccessibilityDetector texts_;
  SessionActivityDetector sessions_;
  ActivityDetector activity_;
};

}  // namespace

int main() {
  const TemporaryHome home;
  EightAgents agents;
  fill(home.path());
  const FileActivityProbe walking(home.path(), 12);
  const WatchingFileProbe watching(home.path(), 12);
  host::LookFiles files(watching);
  TurnReader reader(files);
  const AgentProfiles profiles = host::loadAgents({host::installedAgentsFile()}).profiles;
  TurnDetector turns(reader, profiles);
  Looking withTurns(agents, files, &turns, profiles), without(agents, walking, nullptr, {});
  const auto ours = [&] {
    files.beginLook();
    return withTurns.look();
  };
  bench::compare(
      "a look at 8 agents and 20,000 session files, with turn records", "ms of CPU", ours,
      [&] { return without.look(); }, 1.2);
}
