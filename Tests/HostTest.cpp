// The host as its user meets it: the real program on real processes and files.
#include <gmock/gmock.h>

#include <algorithm>

#include "Host/InstanceLock.h"
#include "Host/SupportDirectory.h"
#include "Host/WatchState.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/SleepController.h"

#include <nlohmann/json.hpp>

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using platform::ChildOutput, platform::ChildProcess;
using testing::HasSubstr;

/// A running program that bears an agent's name: "busy" or "quiet".
ChildProcess impostor(const fs::path& file, const std::string& behaviour) {
  fs::copy_file(WAKELATCH_CHILDREN_DIR "/agent", file);
  return {file.string(), {behaviour}, ChildOutput::captured};
}

/// A home directory with a keep-awake tool in it.
struct Home : TemporaryHome {
  const fs::path tool = path() / "caffeinate";

  explicit Home(const std::string& script = "exec sleep 60") { writeScript(tool, script); }

  std::vector<std::string> manualWatch(int ticks = 10'000) const {
    return {"--tools", path(),         "watch", "--mode",  "manualKeepAwake",    "--interval",
            "0.2",     "--caffeinate", tool,    "--ticks", std::to_string(ticks)};
  }
};

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

TEST(Host, StatusShowsWhatProcessesAndSessionFilesTell) {
  const TemporaryHome home;
  writeFile(home.path() / ".claude/projects/a/b/session.jsonl", "{}");
  writeFile(home.path() / ".local/share/opencode/store.db-wal", "shared with other applications");
  const ChildProcess busy = impostor(home.path() / "codex", "busy");
  const ChildProcess quiet = impostor(home.path() / "qwen", "quiet");
  json status;
  // On a loaded machine the busy one may not get its share within one look.
  EXPECT_TRUE(eventually([&] {
    status = statusNow();
    return signalOf(status, "Codex CLI")["strength"] == 3;
  }));
  EXPECT_EQ(signalOf(status, "Codex CLI")["reason"], "Codex CLI CPU is above the work threshold");
  EXPECT_EQ(signalOf(status, "Qwen Code")["strength"], 1);
  EXPECT_EQ(signalOf(status, "Claude Code")["strength"], 3);
  EXPECT_EQ(signalOf(status, "OpenCode"), nullptr);
  EXPECT_EQ(status["decision"]["status"], "keepingAwake");
  EXPECT_EQ(status["mode"], "watchAgentUI");
  EXPECT_THAT(runHost({"status"}).out, HasSubstr("not believed: session files: OpenCode"));
}

TEST(Host, AWatchGoesThroughGraceToWatchingAndKeepsTheSession) {
  const Home home;
  json settings = {{"idleGracePeriodSeconds", 1}};  // for aider alone: others may be at work here
  for (const AgentProfile& agent : AgentCatalog::builtin())
    if (agent.id != "aider") settings["disabledAgentIDs"].push_back(agent.id);
  writeFile(settingsFile(), settings.dump());
  const ChildProcess busy = impostor(home.path() / "aider", "busy");
  HostProgram watch({"watch", "--json", "--interval", "0.2", "--caffeinate", home.tool});
  std::string out;
  const auto isTold = [&](const char* status) {
    return eventually([&] {
      watch.awaitExit(0.05);
      out += watch.takeStandardOutput();
      return out.find(std::string(R"("status":")") + status) != out.npos;
    });
  };
  EXPECT_TRUE(isTold("keepingAwake"));
  std::this_thread::sleep_for(std::chrono::seconds(1));  // some ticks of a session
  out.clear();
  busy.send(SIGKILL);
  EXPECT_TRUE(isTold("watching"));
  watch.send(SIGTERM);
  const Outcome outcome = watch.finish();
  EXPECT_EQ(outcome.status, 0) << outcome.err;

  std::vector<std::string> statuses;
  std::istringstream lines(out.substr(out.find('{') == 0 ? 0 : out.find('\n') + 1) + outcome.out);
  for (std::string line; std::getline(lines, line);)
    statuses.push_back(json::parse(line)["decision"]["status"]);
  statuses.erase(std::unique(statuses.begin(), statuses.end()), statuses.end());
  ASSERT_GE(statuses.size(), 2u);
  EXPECT_EQ(statuses.at(statuses.size() - 2) + statuses.back(), "idleGracewatching");
  const json usage = json::parse(contentOf(usageFile()));
  EXPECT_THAT(usage["lastCloseReason"], testing::AnyOf("vanished", "idle")) << "by the load here";
  EXPECT_FALSE(usage.contains("lastRun")) << "nothing is booked on a tool that is being tried";
}

TEST(Host, RefusesWrongUsageAndBrokenSettings) {
  const TemporaryHome home;
  using Words = std::vector<std::string>;
  for (const auto& wrong :
       {Words{}, Words{"sleep"}, Words{"status", "extra"}, Words{"watch", "--interval", "0"},
        Words{"watch", "--interval", "8.5"}, Words{"watch", "--mode", "Off"},
        Words{"watch", "--caffeinate", "/missing"}})
    EXPECT_EQ(runHost(wrong).status, 2);

  const std::string broken = R"({"activePhrases":["a",7]})";
  writeFile(settingsFile(), broken);
  for (const std::string command : {"status", "watch", "agents", "explain"}) {
    const Outcome outcome = runHost({command});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr("settings.json: activePhrases[1]: expected a string"));
  }
  EXPECT_EQ(contentOf(settingsFile()), broken);
}

TEST(Host, OnlyOneWatchRunsAndOthersShowWhatItHolds) {
  const Home home;
  HostProgram watch(home.manualWatch());
  const auto state = [] { return runningWatchState().value_or(WatchState()); };
  ASSERT_TRUE(eventually([&] { return state().held.isToolRunning(); }));
  const Outcome second = runHost({"watch"});
  EXPECT_EQ(second.status, 1);
  EXPECT_THAT(second.err, HasSubstr("process " + std::to_string(watch.id())));

  const json shown = statusNow();
  EXPECT_EQ(shown["mode"], "manualKeepAwake");
  EXPECT_EQ(shown["watch"]["pid"], watch.id());
  EXPECT_EQ(shown["watch"]["held"]["isToolWanted"], true);
  EXPECT_EQ(runHost({"watch", "--dry-run", "--ticks", "1"}).status, 0);
  EXPECT_TRUE(fs::exists(SleepController::pidFileURL())) << "neither must touch it";

  watch.send(SIGSTOP);
  const std::string stuck = "PROBLEM  watch: process " + std::to_string(watch.id()) + ": stuck: ";
  EXPECT_TRUE(eventually([&] { return runHost({"doctor"}).out.find(stuck) != std::string::npos; }));
  watch.send(SIGCONT);

  watch.send(SIGINT);
  EXPECT_EQ(watch.finish().status, 0);
  EXPECT_FALSE(fs::exists(SleepController::pidFileURL()));
  EXPECT_TRUE(fs::exists(usageFile())) << "saved at the end, before a minute is over";
}

TEST(Host, LeavesCleanlyWhenNobodyReadsAnyMore) {
  const Home home;
  std::string line = WAKELATCH_HOST_PROGRAM;
  for (const auto& argument : home.manualWatch()) line += " " + argument;
  ChildProcess shell("/bin/sh", {"-c", line + " --json | head -n 1"}, ChildOutput::captured);
  EXPECT_TRUE(shell.awaitExit(10));
  EXPECT_TRUE(eventually([] { return !runningWatch(); }));
  EXPECT_FALSE(fs::exists(SleepController::pidFileURL()));
}

TEST(Host, AnEmptyBatteryPutsAMachineThatIsHeldAwakeToSleep) {
  const Home home;
  writeScript(home.path() / "pmset", R"([ "$1" = sleepnow ] && exec touch ~/asleep
[ -e ~/held ] && charge=5 || charge=80
[ "$2" != batt ] || touch ~/held
echo "Now drawing from 'Battery Power' $charge%")");
  EXPECT_EQ(runHost(home.manualWatch(2)).status, 0);
  EXPECT_TRUE(fs::exists(home.path() / "asleep"));
}

}  // namespace
}  // namespace wakelatch::host
