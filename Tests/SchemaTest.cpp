// The published schemas against the documents that the real host writes.
#include <nlohmann/json.hpp>

#include "Host/SupportDirectory.h"
#include "Host/WatchState.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/UsageMetrics.h"

namespace wakelatch::host {
namespace {

using nlohmann::json;

/// What is wrong with documents in the eyes of their schema; empty: nothing.
std::string faults(const std::string& schema, const json& documents) try {
  const std::string file = platform::homeDirectory() / "documents";
  writeFile(file, documents.dump());
  ProcessCommandRunner(60).run(
      {"/usr/bin/python3", {WAKELATCH_SOURCE_DIR "/Tests/schema_faults.py", schema, file}});
  return {};
} catch (const CommandRunnerError& error) {
  return error.what() + error.result().standardError;
}

TEST(Schema, HoldsWhatTheHostWritesAndNothingElse) {
#ifdef __APPLE__
  if (std::system("/usr/bin/python3 -c 'import jsonschema'") != 0) GTEST_SKIP() << "no jsonschema";
#endif
  const TemporaryHome home;
  const std::string tools = home.path() / "tools", tool = tools + "/caffeinate";
  writeScript(tool, "exec sleep 60");
  const std::string aider = std::to_string(::getpid());  // that turn records may be believed
  writeScript(tools + "/ps",
              "[ -e ~/done ] || printf '" + aider + " 1 50.0 /bin/aider\\n8 1 0 /bin/own\\n'");
  writeScript(tools + "/pmset", "[ \"$*\" != '-g batt' ] || echo 'Battery Power 55%'");
  writeScript(tools + "/ioreg", "echo '\"AppleClamshellState\" = Yes'");
  writeScript(tools + "/osascript", "");
  writeFile(
      settingsFile(),
      R"({"idleGracePeriodSeconds":0,"keepAwakeWithLidClosed":true,"targetApps":["own"],"x":1})");

  std::map<std::string, json> documents;  // by schema, arrays of them
  const auto add = [&](const std::string& schema, const std::string& text) {
    return documents[schema].emplace_back(json::parse(text));
  };
  const auto run = [&](const std::string& command) {
    return add(command, runHost({"--tools", tools, command, "--json"}).out);
  };
  UsageMetrics before(platform::now());
  before.longestProtectedRunSeconds = before.days["2025-03-01"].protectedSeconds = 7200;
  before.longestProtectedRunDate = "2025-03-01";
  before.lastRun = {"Aider", before.installDate, 7200, 7200, 0, true};
  writeFile(usageFile(), encode(before));
  HostProgram watch({"--tools", tools, "watch", "--json", "--interval=.1", "--caffeinate", tool});
  const auto state = [] { return runningWatchState().value_or(WatchState()); };
  ASSERT_TRUE(eventually([&] { return state().lastActiveSignalAt.has_value(); }));
  const auto first = state().lastActiveSignalAt;
  ASSERT_TRUE(eventually([&] { return state().lastActiveSignalAt > first; }));  // time is counted
  writeFile(home.path() / ".local/share/opencode/shared.db-wal", "");
  writeFile(supportDirectory() / "agents.json",
            R"({"agents": [{"id": "aider", "turnRecords": [{"globs": ["turn"], "rules": [
                {"state": "working", "when": {"is": ["busy"]}}]}]}]})");
  writeFile(home.path() / "turn", R"({"is": "busy"})");
  json seen = run("status"), evidence = std::move(seen["evidence"]);
  const json process = {
      {"cpuPercent", 50}, {"thresholdPercent", 8}, {"trustsCPU", true}, {"sessionCount", 1}};
  EXPECT_EQ(seen["signals"][0]["sessionCount"], 1);
  EXPECT_EQ(seen["signals"][0]["agentID"], "aider");
  EXPECT_FALSE(seen["signals"][1].contains("agentID")) << "the user's own";
  EXPECT_EQ(evidence[0]["process"], process);
  EXPECT_EQ(evidence[0]["turn"]["state"], "working");
  EXPECT_EQ(evidence[1]["id"], "opencode");
  EXPECT_EQ(evidence[1]["sessionFile"]["isBelieved"], false);
  EXPECT_LT(evidence[1]["sessionFile"]["ageSeconds"], 60);
  writeFile(home.path() / "done", "");
  ASSERT_TRUE(eventually([&] { return state().held.releaseDueAt.has_value(); }));
  EXPECT_TRUE(run("explain")["status"]["watch"]["held"].contains("releaseDueAt"));
  watch.send(SIGTERM);
  std::istringstream lines(watch.finish().out);
  for (std::string line; std::getline(lines, line);) add("watch", line);
  EXPECT_TRUE(run("stats").contains("longestProtectedRun"));
  writeFile(supportDirectory() / "agents.json",
            R"({"$schema": "x", "agents": [{"id": "aider", "activePhrases": []},
                {"id": "mine", "displayName": "Mine", "kind": "editor", "iconBundleID": "x",
                 "turnRecords": [{"globs": ["x"], "form": "sqlite", "query": "", "rules": [
                                    {"state": "asksForTool", "when": {"x": ["y"]}}],
                                  "processIDField": "x", "isNamedByDirectory": true}]}]})");
  add("catalogue", contentOf(supportDirectory() / "agents.json"));
  add("catalogue", contentOf(WAKELATCH_SOURCE_DIR "/Catalogue/agents.json"));
  EXPECT_TRUE(run("agents")["sources"].contains("mine"));
  auto usage = decode<UsageMetrics>(add("usage", contentOf(usageFile())).dump());
  usage.sessionStartedAt = usage.lastActiveSignalAt = usage.lastTickAt;
  add("usage", encode(usage));
  add("settings", encode(GuardSettings()));
  add("settings", contentOf(settingsFile()));
  writeFile(settingsFile(), "[]");
  const json findings = run("doctor")["findings"];
  EXPECT_TRUE(findings[0].contains("remedy"));
  for (const auto& [name, all] : documents) EXPECT_EQ(faults(name, all), "") << name << all;

  const json changes = json::parse(R"({"status": {"added": 1},
    "explain": {"status": {"decision": {"added": 1}}},
    "catalogue": {"agents": [{"id": "x", "turnRecords": [{"rules": [{"added": 1}]}]}]},
    "settings": {"batteryProfile": {"warningPercent": null}},
    "usage": {"lastRun": {"endedAt": "2025-03-01T00:00:00Z"}}})");
  for (const auto& [name, change] : changes.items()) {
    json document = documents.at(name)[0];
    document.merge_patch(change);  // null takes a key away
    EXPECT_NE(faults(name, json::array({document})), "") << change;
  }
}

}  // namespace
}  // namespace wakelatch::host
