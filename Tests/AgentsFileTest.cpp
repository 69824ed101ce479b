#include "Host/AgentsFile.h"

#include <gmock/gmock.h>

#include "Host/SupportDirectory.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

using testing::ElementsAre, testing::HasSubstr, testing::Pair, testing::StartsWith;

AgentProfile find(const Agents& agents, const std::string& id) {
  for (const AgentProfile& profile : agents.profiles.all()) {
    if (profile.id == id) return profile;
  }
  ADD_FAILURE() << "no " << id;
  return {};
}

TEST(AgentsFile, TheUsersFileIsLaidOverTheInstalledOneAndThatOverTheBuiltinAgents) {
  const TemporaryDirectory directory;
  const auto installed = directory.path() / "installed", own = directory.path() / "own";
  EXPECT_EQ(loadAgents({installed, own}).profiles.all(), AgentCatalog::builtin());
  writeFile(installed, R"({"$schema": "x", "agents": [
    {"id": "aider", "displayName": "Pi", "activePhrases": ["a"], "idlePhrases": ["b"],
     "turnRecords": [{"globs": ["g/*"], "form": "lines", "isNamedByDirectory": true, "query": "q",
                      "rules": [{"state": "waiting", "when": {"a.b": ["*"]}}]}]},
    {"id": "pi-coding-agent", "displayName": "Aider"},
    {"id": "web", "displayName": "Web", "kind": "browser", "toolMarkers": ["m"]}]})");
  writeFile(own, R"({"agents": [
    {"id": "web", "isConnectedOnlyInTurns": true, "kind": null},
    {"id": "aider", "activePhrases": [], "iconBundleID": "i"},
    {"id": "mine", "displayName": "Mine", "scanTerminalText": false}]})");
  const Agents agents = loadAgents({installed, own});

  AgentProfile aider = AgentCatalog::builtin()[6];
  aider.displayName = "Pi";
  aider.activePhrases = {};
  aider.idlePhrases = {"b"};
  aider.iconBundleID = "i";
  aider.turnRecords = {{.globs = {"g/*"},
                        .form = TurnRecordFormat::Form::lines,
                        .rules = {{TurnState::waiting, {{"a.b", {"*"}}}}},
                        .isNamedByDirectory = true,
                        .query = "q"}};
  EXPECT_EQ(find(agents, "aider"), aider);
  AgentProfile web = AgentCatalog::builtin().back();
  web.id = "web", web.displayName = "Web", web.bundleIDs = web.appBundleNames = {};
  web.toolMarkers = {"m"}, web.isConnectedOnlyInTurns = true;
  EXPECT_EQ(find(agents, "web"), web) << "what its kind says of it";
  EXPECT_TRUE(find(agents, "mine").trustsCPUSignal);
  EXPECT_FALSE(find(agents, "mine").scanTerminalText);
  EXPECT_EQ(agents.profiles.all().back().id, "mine") << "new ones are last";
  EXPECT_THAT(agents.sources.at("aider"),
              ElementsAre(Pair("activePhrases", own), Pair("displayName", installed),
                          Pair("iconBundleID", own), Pair("idlePhrases", installed),
                          Pair("turnRecords", installed)));
  EXPECT_EQ(agents.sources.at("web").at("id"), installed) << "nothing of it is built in";
}

TEST(AgentsFile, WhatIsWrongIsNamedWithItsPlaceAndTheLastGoodAgentsStay) {
  const TemporaryDirectory directory;
  const auto file = directory.path() / "agents.json";
  const std::string good = R"({"agents": [{"id": "aider", "displayName": "A"}]})";
  writeFile(file, good);
  LiveAgents live({directory.path() / "none", file});
  const auto agentWith = [](const std::string& field) {
    return R"({"agents": [{"id": "x", "displayName": "X"}, {"id": "aider", )" + field + "}]}";
  };
  const std::pair<std::string, std::string> wrong[] = {
      {"", "not JSON: "},
      {"{}", "agents: missing"},
      {R"({"agents": [], "agent": []})", "agent: no such field"},
      {R"({"agents": [[]]})", "agents[0]: expected an object"},
      {R"({"agents": [{"displayName": "X"}]})", "agents[0].id: missing"},
      {R"({"agents": [{"id": "", "displayName": "X"}]})", "agents[0].id: must not be empty"},
      {R"({"agents": [{"id": "x"}]})", "agents[0].displayName: missing"},
      {R"({"agents": [{"id": "x", "displayName": "Pi"}]})",
       R"(agents[0].displayName: "pi-coding-agent" has this name too)"},
      {R"({"agents": [{"id": "zed"}, {"id": "zed"}]})",
       R"(agents[1]: there are two entries for "zed")"},
      {agentWith(R"("activePhrase": [])"), "agents[1].activePhrase: no such field"},
      {agentWith(R"("activePhrases": "a")"), "agents[1].activePhrases: expected an array"},
      {agentWith(R"("kind": "cat")"), R"(agents[1].kind: no such case: "cat")"},
      {agentWith(R"("turnRecords": [{}, {"glob": []}])"),
       "agents[1].turnRecords[1].glob: no such field"},
      {agentWith(R"("turnRecords": [{"rules": [{"if": {}}]}])"),
       "agents[1].turnRecords[0].rules[0].if: no such field"}};
  for (const auto& [text, message] : wrong) {
    writeFile(file, text);
    for (int again = 0; again < 2; ++again)
      EXPECT_THAT(live.refresh(), StartsWith("agents: " + file.string() + ": " + message)) << text;
    EXPECT_THROW(LiveAgents({file}), std::runtime_error);
  }
  EXPECT_EQ(find(live.current(), "aider").displayName, "A");
  writeFile(file, good + "\n");
  EXPECT_EQ(live.refresh(), "");
  EXPECT_EQ(live.version(), 0) << "the same agents";
  std::filesystem::remove(file);
  EXPECT_EQ(live.refresh(), "");
  EXPECT_EQ(live.version(), 1);
  EXPECT_EQ(find(live.current(), "aider").displayName, "Aider");
}

TEST(AgentsFile, CommandsGoByTheUsersFile) {
  const TemporaryHome home;
  const auto file = supportDirectory() / "agents.json";
  writeFile(file, R"({"agents": [{"id": "mine", "displayName": "Mi\u001bne", "turnRecords": [{}],
                                  "oneShotArguments": ["-p"], "trustsCPUSignal": false}]})");
  EXPECT_THAT(runHost({"agents"}).out,
              HasSubstr("Mi\uFFFDne  (mine, cli)\n    one-shot runs  -p\n"
                        "    seen working by turn records, one-shot runs\n    from " +
                        file.string() +
                        ": displayName, id, oneShotArguments, trustsCPUSignal, turnRecords\n"));
  EXPECT_THAT(runHost({"doctor"}).out, HasSubstr("ok       agent catalogue: "));
  EXPECT_EQ(runHost({"status", "--agent=mine"}).status, 0);
  EXPECT_THAT(runHost({"status", "--agent=other"}).err, HasSubstr(", mine"));

  writeFile(file, "{}");
  const std::string message = "agents: " + file.string() + ": agents: missing";
  EXPECT_THAT(runHost({"status", "--agent=aider"}).err, HasSubstr(message));
  EXPECT_THAT(runHost({"doctor"}).out, HasSubstr("PROBLEM  agent catalogue: " + message));
}

}  // namespace
}  // namespace wakelatch::host
