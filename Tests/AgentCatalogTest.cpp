#include "WakelatchCore/AgentCatalog.h"

#include <gmock/gmock.h>

#include <array>

#include "Host/AgentProfileJson.h"

namespace wakelatch {
namespace {

using ::testing::ElementsAre;

/// The id of the profile that a command resolves to; "-" for none.
std::string resolve(const AgentResolver& resolver, std::string_view path,
                    std::string_view arguments = "") {
  const AgentProfile* profile = resolver.profileForCommand(path, arguments);
  return profile == nullptr ? "-" : profile->id;
}

// Whoever changes the catalogue on purpose changes its digest here, 64 bits of FNV-1a.
TEST(AgentCatalog, IsAsAgreedOn) {
  std::string catalogue = encode(AgentCatalog::builtin());
  for (const std::string& name : AgentCatalog::cliAgentNames()) catalogue += " " + name;
  for (const std::string& id : AgentCatalog::terminalBundleIDs()) catalogue += " " + id;
  std::uint64_t digest = 0xcbf29ce484222325;
  for (const char c : catalogue) digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001b3;
  EXPECT_EQ(digest, 0x7bded68e23e41d64u) << catalogue;
}

TEST(AgentResolver, NarrowsTheCatalogByTheSettings) {
  GuardSettings settings;
  settings.disabledAgentIDs = {"codex-cli", "Claude-Code", "chrome"};
  std::vector<AgentProfile> expected = AgentCatalog::builtin();
  expected.resize(21);  // the browsers are last
  expected.erase(expected.begin() + 1);
  EXPECT_EQ(AgentResolver::make(settings).profiles(), expected);
  expected.resize(8);  // the command-line agents are first
  EXPECT_EQ(AgentResolver::make(settings).terminalScanProfiles(), expected);
  settings.enableBrowsers = true;
  EXPECT_EQ(AgentResolver::make(settings).profiles().back(), AgentCatalog::builtin().back());
}

TEST(AgentResolver, FindsTheAgentOfABundleOrCommand) {
  const AgentResolver resolver = AgentResolver::make({});
  EXPECT_EQ(resolver.profileForBundleID("COM.OPENAI.CHAT")->id, "chatgpt-desktop");
  EXPECT_EQ(resolver.profileForBundleID("dev.\u212airo.desktop")->id, "kiro");
  EXPECT_EQ(resolver.profileForBundleID("com.openai.cha"), nullptr);
  using Row = std::array<const char*, 3>;
  for (const auto& [path, arguments, id] :
       {Row{"/x/Claude-Code/cli", "", "claude-code"}, Row{"/bin/claude", "", "claude-code"},
        Row{"/Applications/Cursor.app/x", "node /opt/CLAUDE-CODE/cli.js", "claude-code"},
        Row{"/usr/bin/node", "\xc3\x9c /x/pi-coding-agent/y /x/claude/versions/1", "claude-code"},
        Row{"XAI-GRO\u212a-pager", "", "grok-build"}, Row{"/opt/pi/", "", "pi-coding-agent"},
        Row{"/bin/node", "/u/bin/codex --x", "codex-cli"}, Row{"node", "/x/gemini.js\tcodex", "-"},
        Row{"/bin/NODE", "node -x //  /opt/Gemini/ codex", "gemini-cli"},
        Row{"/usr/bin/node", "/x/pi-coding-agent", "-"}, Row{"/bin/clauded", "claude", "-"},
        Row{"/bin/zsh", "/u/bin/codex --x", "-"},
        Row{"/Applications/Cursor.app/claude", "", "cursor"}, Row{"", "codex", "-"},
        Row{"/a/visual studio CODE.app/Codex.app/codex", "", "vscode"}, Row{"/", "codex", "-"},
        Row{"/a/Cursor.APP/node", "codex", "codex-cli"}})
    EXPECT_EQ(resolve(resolver, path, arguments), id) << path << " " << arguments;
}

TEST(AgentResolver, TheFirstProfileWinsAndMarkersMaySpanPathAndArguments) {
  const AgentResolver original(
      {{.id = "first", .cliProcessNames = {"", "Tool"}, .cliPathMarkers = {"", "B C"}},
       {.id = "second", .cliProcessNames = {"tool"}, .cliPathMarkers = {"/aa/"}}});
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization): of the copy, that it is whole
  const AgentResolver resolver = original;
  EXPECT_EQ(resolve(resolver, "/aa/b", "c"), "first");
  EXPECT_EQ(resolve(resolver, "/aa/b"), "second");
  EXPECT_EQ(resolve(resolver, ""), "-");
  EXPECT_EQ(resolver.profileForCommand("/b/TOOL", ""), &resolver.profiles()[0]);
}

// As a static initialiser of the host may do.
std::string early;
const bool isEarlyInstalled = static_cast<bool>(
    AgentResolver::onUnmatchedHostBundle = [](const auto& bundle, const auto&) { early = bundle; });

TEST(AgentResolver, ReportsAnUnknownHostBundleOnce) {
  const AgentResolver resolver = AgentResolver::make({});
  std::vector<std::string> reports;
  ASSERT_TRUE(isEarlyInstalled);
  resolve(resolver, "/Applications/Early.app/codex");
  EXPECT_EQ(early, "Early");
  AgentResolver::onUnmatchedHostBundle = nullptr;
  resolve(resolver, "/Applications/Unheard.app/codex");  // used up while nobody listens
  AgentResolver::onUnmatchedHostBundle = [&](const std::string& bundle, const std::string& binary) {
    reports.push_back(bundle + " " + binary);
    resolve(resolver, "/Applications/Nested.app/Pi");  // a handler may resolve
  };
  using Command = std::pair<const char*, const char*>;
  for (const auto& [path, arguments] :
       {Command{"/Applications/Unheard.app/codex", ""}, Command{"/A/Foo.app/bin/Claude", "codex"},
        Command{"/Applications/foo.app/bin/codex", ""}, Command{"/.app/bin/codex", ""},
        Command{"/A/Bar.app/x", "--x  /bin/CODEX pi"}, Command{"/A/Silent.app/x", "codex.js"}})
    EXPECT_EQ(resolve(resolver, path, arguments), "-") << path;
  AgentResolver::onUnmatchedHostBundle = nullptr;
  EXPECT_THAT(reports, ElementsAre("Foo Claude", "Nested Pi", " codex", "Bar CODEX"));
}

}  // namespace
}  // namespace wakelatch
