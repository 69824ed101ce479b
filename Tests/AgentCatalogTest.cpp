#include "WakelatchCore/AgentCatalog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <tuple>
#include <utility>

#include "Platform/Text.h"

namespace wakelatch {
namespace {

using ::testing::ElementsAre;
using ::testing::Pair;

GuardSettings settingsWithBrowsers() {
  GuardSettings settings;
  settings.enableBrowsers = true;
  return settings;
}

/// The id of the profile that a command resolves to; "-" for none.
std::string resolve(const AgentResolver& resolver, std::string_view path,
                    std::string_view arguments = "") {
  const AgentProfile* profile = resolver.profileForCommand(path, arguments);
  return profile == nullptr ? "-" : profile->id;
}

TEST(AgentCatalog, TablesFitTogether) {
  const auto profiles = AgentCatalog::builtin();
  ASSERT_EQ(profiles.size(), 25u);
  EXPECT_EQ(profiles.front().id, "claude-code");
  EXPECT_EQ(profiles.back().id, "comet");
  std::map<std::string, int> ids;
  std::map<AgentProfile::Kind, int> kinds;
  int withoutPhrases = 0, withSessionFiles = 0, shared = 0, counted = 0, icons = 0;
  for (const AgentProfile& profile : profiles) {
    SCOPED_TRACE(profile.id);
    const bool cli = profile.kind == AgentProfile::Kind::cli;
    EXPECT_EQ(++ids[profile.id], 1);
    ++kinds[profile.kind];
    EXPECT_EQ(profile.cliProcessNames.empty(), !cli);
    EXPECT_EQ(profile.bundleIDs.empty(), cli);
    EXPECT_EQ(profile.appBundleNames.empty(), cli);
    EXPECT_EQ(profile.trustsCPUSignal, cli);
    EXPECT_EQ(profile.scanTerminalText, cli);
    EXPECT_EQ(profile.requireMultiWordPhrases,
              !cli && profile.kind != AgentProfile::Kind::desktopAI);
    for (const auto& bundleID : profile.bundleIDs) {
      EXPECT_EQ(bundleID, platform::lowercased(bundleID));
    }
    withoutPhrases += profile.activePhrases.empty();
    withSessionFiles += !profile.sessionActivityGlobs.empty();
    shared += profile.sessionGlobsSharedWithOtherApps;
    counted += !profile.sessionCountGlobs.empty();
    icons += profile.iconBundleID.has_value();
  }
  using enum AgentProfile::Kind;
  EXPECT_THAT(kinds,
              ElementsAre(Pair(desktopAI, 5), Pair(editor, 7), Pair(browser, 4), Pair(cli, 9)));
  EXPECT_EQ(std::tuple(withoutPhrases, withSessionFiles, shared, counted, icons),
            std::tuple(2, 6, 3, 4, 1));
  EXPECT_EQ(fromRawValue<AgentProfile::Kind>("cli"), cli);
  EXPECT_FALSE(fromRawValue<AgentProfile::Kind>("CLI"));
  EXPECT_EQ(AgentCatalog::cliAgentNames().size(), 9u);
  EXPECT_TRUE(AgentCatalog::cliAgentNames().contains("Pi"));
  EXPECT_TRUE(AgentCatalog::terminalBundleIDs().contains("dev.warp.warp-stable"));
}

TEST(AgentResolver, NarrowsTheCatalogByTheSettings) {
  GuardSettings settings;
  settings.disabledAgentIDs = {"codex-cli", "Claude-Code", "chrome"};
  std::vector<AgentProfile> expected = AgentCatalog::builtin();
  expected.resize(21);  // the browsers are last
  expected.erase(expected.begin() + 1);
  const AgentResolver resolver = AgentResolver::make(settings);
  EXPECT_EQ(resolver.profiles(), expected);
  const auto scanned = resolver.terminalScanProfiles();
  EXPECT_EQ(scanned, (std::vector(expected.begin(), expected.begin() + 8)));
  settings.enableBrowsers = true;
  EXPECT_EQ(AgentResolver::make(settings).profiles().size(), 23u);
}

TEST(AgentResolver, FindsTheOwnerOfABundleIdentifier) {
  const AgentResolver resolver = AgentResolver::make(settingsWithBrowsers());
  for (const auto& [bundleID, id] : {std::pair{"COM.OPENAI.CHAT", "chatgpt-desktop"},
                                     {"dev.\u212airo.desktop", "kiro"},
                                     {"com.apple.Safari", "safari"},
                                     {"com.apple.terminal", "-"},
                                     {"com.openai.cha", "-"},
                                     {"", "-"}}) {
    const AgentProfile* profile = resolver.profileForBundleID(bundleID);
    EXPECT_EQ(profile == nullptr ? "-" : profile->id, id) << bundleID;
  }
}

TEST(AgentResolver, FindsTheAgentOfACommand) {
  const AgentResolver resolver = AgentResolver::make(settingsWithBrowsers());
  const struct {
    const char *path, *arguments, *id;
  } rows[] = {
      {"/x/Claude-Code/cli", "", "claude-code"},
      {"/Applications/Cursor.app/x", "node /opt/CLAUDE-CODE/cli.js", "claude-code"},
      {"/usr/bin/node", "\xc3\x9c /x/pi-coding-agent/run /x/claude/versions/1", "claude-code"},
      {"/usr/bin/node", "/x/pi-coding-agent", "-"},
      {"/usr/local/bin/claude", "", "claude-code"},
      {"XAI-GRO\u212a-pager", "", "grok-build"},
      {"/opt/pi/", "", "pi-coding-agent"},
      {"/usr/bin/clauded", "claude", "-"},
      {"/usr/local/bin/node", "/Users/u/.npm/bin/codex --full-auto", "codex-cli"},
      {"/usr/local/bin/NODE", "node -x //  /opt/Gemini/ codex", "gemini-cli"},
      {"node", "/x/gemini.js\tcodex", "-"},
      {"/bin/zsh", "/Users/u/.npm/bin/codex --full-auto", "-"},
      {"/usr/bin/\xffnode", "codex", "-"},
      {"/Applications/Cursor.app/Contents/Resources/app/bin/claude", "", "cursor"},
      {"/a/visual studio CODE.app/Frameworks/Codex.app/MacOS/codex", "", "vscode"},
      {"/a/Cursor.APP/node", "codex", "codex-cli"},
      {"", "codex", "-"},
      {"/", "codex", "-"},
  };
  for (const auto& [path, arguments, id] : rows) {
    EXPECT_EQ(resolve(resolver, path, arguments), id) << path << " " << arguments;
  }
}

TEST(AgentResolver, TheFirstProfileWinsAndMarkersMaySpanPathAndArguments) {
  AgentProfile first{.id = "first", .cliProcessNames = {"", "Tool"}, .cliPathMarkers = {"", "B C"}};
  AgentProfile second{.id = "second", .cliProcessNames = {"tool"}, .cliPathMarkers = {"/aa/"}};
  const AgentResolver original({first, second});
  const AgentResolver resolver = original;
  EXPECT_EQ(resolve(resolver, "/aa/b", "c"), "first");
  EXPECT_EQ(resolve(resolver, "/aa/b", ""), "second");
  EXPECT_EQ(resolve(resolver, "/b/TOOL"), "first");
  EXPECT_EQ(resolve(resolver, ""), "-");
  EXPECT_EQ(resolver.profileForCommand("tool", ""), &resolver.profiles()[0]);
}

TEST(AgentResolver, ReportsAnUnknownHostBundleOnce) {
  const AgentResolver resolver = AgentResolver::make({});
  std::vector<std::pair<std::string, std::string>> reports;
  const auto run = [&](const char* path, const char* arguments = "") {
    EXPECT_EQ(resolve(resolver, path, arguments), "-");
  };
  run("/Applications/Early.app/codex");  // used up while nobody listens
  AgentResolver::onUnmatchedHostBundle = [&](const std::string& bundle, const std::string& binary) {
    reports.emplace_back(bundle, binary);
    run("/Applications/Nested.app/Pi");  // a handler may resolve
  };
  run("/Applications/Early.app/codex");
  run("/Applications/Foo.app/Contents/MacOS/Claude", "codex");
  run("/Applications/foo.app/bin/codex");
  run("/Applications/Bar.app/helper", "--x  /bin/CODEX pi");
  run("/Applications/Silent.app/helper", "codex.js");
  run("/.app/bin/codex");
  AgentResolver::onUnmatchedHostBundle = nullptr;
  EXPECT_THAT(reports, ElementsAre(Pair("Foo", "Claude"), Pair("Nested", "Pi"),
                                   Pair("Bar", "CODEX"), Pair("", "codex")));
}

TEST(AgentResolver, TakesPathsApart) {
  for (const auto& [path, name] : {std::pair{"/usr/bin/ps", "ps"},
                                   {"a//b//", "b"},
                                   {"ps", "ps"},
                                   {"", ""},
                                   {"/", "/"},
                                   {"//", "//"}}) {
    EXPECT_EQ(AgentResolver::basename(path), name);
  }
  using Bundle = std::optional<std::string>;
  EXPECT_EQ(AgentResolver::appBundleName("/A B.app/Contents/C.app/D"), Bundle("A B"));
  EXPECT_EQ(AgentResolver::appBundleName("x/.app"), Bundle(""));
  EXPECT_EQ(AgentResolver::appBundleName("/usr/x.application/y.APP"), Bundle());
}

}  // namespace
}  // namespace wakelatch
