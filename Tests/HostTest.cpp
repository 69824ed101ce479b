// The host as its user meets it: the real program on real processes and files.
#include <gmock/gmock.h>

#include <fstream>

#include "Host/InstanceLock.h"
#include "Host/WatchState.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryFolder.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/SleepController.h"

#include <nlohmann/json.hpp>

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using platform::ChildOutput;
using platform::ChildProcess;
using testing::HasSubstr;

/// A running program that bears an agent's name: "busy" or "quiet".
class Impostor {
 public:
  Impostor(const fs::path& file, const std::string& behaviour)
      : child_((fs::copy_file(fs::path(WAKELATCH_CHILDREN_DIR) / "agent", file), file.string()),
               {behaviour}, ChildOutput::captured) {}

 private:
  ChildProcess child_;  // killed with the object
};

/// Settings under which one agent alone is watched: others may be at work on this machine.
void watchOnly(const std::string& agentID, const fs::path& home) {
  json disabled = json::array();
  for (const AgentProfile& agent : AgentCatalog::builtin()) {
    if (agent.id != agentID) disabled.push_back(agent.id);
  }
  const json settings = {{"idleGracePeriodSeconds", 1}, {"disabledAgentIDs", disabled}};
  writeFile(home / "Library/Application Support/Lumenhold/settings.json", settings.dump());
}

json signalOf(const json& status, const std::string& agent) {
  for (const json& signal : status["signals"]) {
    if (signal["appName"] == agent) return signal;
  }
  return nullptr;
}

json statusNow() {
  const Outcome outcome = runHost({"status", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  return json::parse(outcome.out);
}

TEST(Host, SeesABusyAndAQuietAgentAmongTheProcesses) {
  const TemporaryHome home;
  const Impostor busy(home.path() / "codex", "busy");
  const Impostor quiet(home.path() / "qwen", "quiet");
  json status;
  // On a loaded machine the busy one may not get its share within one look.
  EXPECT_TRUE(eventually([&] {
    status = statusNow();
    return signalOf(status, "Codex CLI") != nullptr &&
           signalOf(status, "Codex CLI")["strength"] == 3;
  }));
  EXPECT_EQ(signalOf(status, "Codex CLI"),
            json({{"strength", 3},
                  {"appName", "Codex CLI"},
                  {"reason", "Codex CLI CPU is above the work threshold"},
                  {"processPresent", true}}));
  EXPECT_EQ(signalOf(status, "Qwen Code")["strength"], 1);
  EXPECT_EQ(status["decision"]["status"], "keepingAwake");
  EXPECT_TRUE(status["decision"]["shouldPreventSleep"]);
  EXPECT_EQ(status["mode"], "watchAgentUI");
  EXPECT_THAT(runHost({"status"}).out, HasSubstr("Codex CLI"));
}

TEST(Host, BelievesSessionFilesAndSharedOnesOnlyBesideTheirProcess) {
  const TemporaryHome home;
  writeFile(home.path() / ".claude/projects/a/b/session.jsonl", "{}");
  writeFile(home.path() / ".local/share/opencode/store.db-wal", "x");
  json status = statusNow();
  EXPECT_EQ(signalOf(status, "Claude Code")["reason"], "Claude Code session active (0s ago)");
  EXPECT_EQ(signalOf(status, "OpenCode"), nullptr);
  EXPECT_THAT(runHost({"status"}).out, HasSubstr("not believed: session files: OpenCode"));

  const Impostor openCode(home.path() / "opencode", "quiet");
  status = statusNow();
  EXPECT_EQ(signalOf(status, "OpenCode")["strength"], 3);
}

TEST(Host, AWatchGoesThroughGraceToWatchingAndLeavesOnASignal) {
  const TemporaryHome home;
  watchOnly("aider", home.path());
  auto busy = std::make_unique<Impostor>(home.path() / "aider", "busy");
  HostProgram watch({"watch", "--dry-run", "--json", "--interval", "0.2"});
  EXPECT_FALSE(watch.awaitExit(1.5));
  busy.reset();
  EXPECT_FALSE(watch.awaitExit(2.5));
  watch.send(SIGTERM);
  const Outcome outcome = watch.finish();
  EXPECT_EQ(outcome.status, 0) << outcome.err;

  std::vector<std::string> statuses;
  std::istringstream lines(outcome.out);
  for (std::string line; std::getline(lines, line);) {
    const json tick = json::parse(line);
    EXPECT_EQ(tick["at"].get<std::string>().size(), 20u);
    const std::string status = tick["decision"]["status"];
    if (statuses.empty() || statuses.back() != status) statuses.push_back(status);
  }
  EXPECT_THAT(statuses, testing::ElementsAre("keepingAwake", "idleGrace", "watching"));
}

TEST(Host, RefusesWrongUsageAndBrokenSettings) {
  const TemporaryHome home;
  const std::vector<std::vector<std::string>> wrong = {{},
                                                       {"sleep"},
                                                       {"watch", "--interval", "0"},
                                                       {"watch", "--interval", "8.5"},
                                                       {"watch", "--mode", "Off"},
                                                       {"status", "extra"},
                                                       {"watch", "--caffeinate", "/missing"}};
  for (const auto& arguments : wrong) EXPECT_EQ(runHost(arguments).status, 2);

  const fs::path file = home.path() / "Library/Application Support/Lumenhold/settings.json";
  const std::string broken = R"({"activePhrases":["a",7]})";
  writeFile(file, broken);
  for (const std::string command : {"status", "watch", "agents", "explain"}) {
    const Outcome outcome = runHost({command});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(file.string() + ": activePhrases[1]: expected a text"));
  }
  EXPECT_EQ(contentOf(file), broken);
}

TEST(Host, OnlyOneWatchRunsAndStatusShowsWhatItHolds) {
  const TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate";
  writeScript(tool, "exec sleep 60");
  HostProgram watch(
      {"watch", "--mode", "manualKeepAwake", "--interval", "0.2", "--caffeinate", tool.string()});
  ASSERT_TRUE(eventually([] { return runningWatchState().has_value(); }));
  const Outcome second = runHost({"watch"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("process " + std::to_string(watch.id())));

  const json shown = statusNow();
  EXPECT_EQ(shown["mode"], "manualKeepAwake");
  EXPECT_EQ(shown["watch"]["pid"], watch.id());
  EXPECT_EQ(shown["watch"]["isSleepPreventionEnabled"], true);
  EXPECT_EQ(shown["watch"]["appliedLetDisplaySleep"], false);
  EXPECT_TRUE(fs::exists(SleepController::pidFileURL())) << "status must not touch it";

  watch.send(SIGINT);
  EXPECT_EQ(watch.finish().status, 0);
  EXPECT_FALSE(fs::exists(SleepController::pidFileURL()));
  EXPECT_FALSE(statusNow().contains("watch"));
}

TEST(Host, ASecondSignalLeavesAtOnce) {
  const TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate";
  writeScript(tool, "trap '' TERM\nwhile :; do sleep 1; done");
  HostProgram watch({"watch", "--mode", "manualKeepAwake", "--caffeinate", tool.string()});
  ASSERT_TRUE(eventually([] { return runningWatchState().has_value(); }));
  const auto pids = SleepController::readCaffeinatePIDs();
  watch.send(SIGINT);
  EXPECT_FALSE(watch.awaitExit(0.5)) << "it waits for the stubborn tool";
  watch.send(SIGTERM);
  EXPECT_EQ(watch.finish(2).status, 128 + SIGTERM);
  ASSERT_EQ(pids.size(), 1u);
  ::kill(pids[0], SIGKILL);
}

TEST(Host, LeavesCleanlyWhenNobodyReadsAnyMore) {
  const TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate";
  writeScript(tool, "exec sleep 60");
  const std::string line = std::string(WAKELATCH_HOST_PROGRAM) +
                           " watch --json --mode manualKeepAwake --interval 0.1 --caffeinate " +
                           tool.string() + " | head -n 1";
  ChildProcess shell("/bin/sh", {"-c", line}, ChildOutput::captured);
  EXPECT_TRUE(shell.awaitExit(10));
  EXPECT_TRUE(eventually([] { return !runningWatch(); }));
  EXPECT_FALSE(fs::exists(SleepController::pidFileURL()));
}

TEST(Host, AToolThatEndsAtOnceIsNotRestartedOnEveryTick) {
  const TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate", starts = home.path() / "starts";
  writeScript(tool, "echo started >> " + starts.string() + "\nexit 1");
  const Outcome outcome = runHost({"watch", "--mode", "manualKeepAwake", "--interval", "0.2",
                                   "--ticks", "8", "--caffeinate", tool.string()});
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(contentOf(starts), "started\n");
  EXPECT_THAT(outcome.err, HasSubstr("this system cannot be kept awake"));
}

// A stopped host is what the system's sleep looks like from inside.
TEST(Host, AGapBetweenTicksClosesTheSessionAsInterrupted) {
  const TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate", log = FileLogger().logURL();
  writeScript(tool, "exec sleep 60");
  watchOnly("grok-build", home.path());
  const Impostor busy(home.path() / "grok", "busy");
  HostProgram watch({"watch", "--interval", "0.2", "--caffeinate", tool.string()});
  const auto isWorking = [] {
    const auto state = runningWatchState();
    return state && state->lastActiveSignalAt;
  };
  ASSERT_TRUE(eventually(isWorking));
  EXPECT_FALSE(watch.awaitExit(0.5));
  watch.send(SIGSTOP);
  std::this_thread::sleep_for(std::chrono::milliseconds(10'300));
  watch.send(SIGCONT);
  EXPECT_TRUE(
      eventually([&] { return contentOf(log).find(" close=interrupted ") != std::string::npos; }));
  watch.send(SIGTERM);
  EXPECT_EQ(watch.finish().status, 0);
  const json usage = json::parse(
      contentOf(log.parent_path().parent_path() / "Application Support/Lumenhold/usage.json"));
  EXPECT_EQ(usage["wakeGapTicksDropped"], 1);
  EXPECT_EQ(usage["lastCloseReason"], "interrupted");
  EXPECT_EQ(usage["lastRun"]["agentDisplayName"], "Grok Build");
}

}  // namespace
}  // namespace wakelatch::host
