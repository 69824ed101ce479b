#include "WakelatchCore/AgentAppName.h"

#include <gtest/gtest.h>

namespace wakelatch {

using namespace AgentAppName;

using Row = std::pair<const char*, const char*>;

TEST(AgentAppName, MatchesWhenOneNormalizedNameContainsTheOther) {
  for (const auto& [name, key] :
       {Row{"Claude Desktop", "claude"}, Row{"\u00a0Cursor.app\n", "cursor"},
        Row{"A DESKTOP desktop.APP.app", "a"}, Row{"x .appdesktop", "x desktop"},
        Row{"x.a.apppp y", "x.app y"}, Row{"\u212aiRO\xff", "kiro\xff"}})
    EXPECT_EQ(normalized(name), key);
  EXPECT_TRUE(matches("Claude Desktop", "Claude") && matches("Code", "Xcode.app"));
  for (const auto& [name, target] :
       {Row{"Claude", "Codex"}, Row{"Claude", ""}, Row{"Claude", " desktop"}, Row{"", "Claude"}})
    EXPECT_FALSE(matches(name, target)) << name << " against " << target;
}

TEST(AgentAppName, NamesTheFamilyByTheFirstRule) {
  for (const auto& [name, family] :
       {Row{"Chrome", "Google Chrome"}, Row{"Chromium", "Chromium"}, Row{"Xcode", "Xcode"},
        Row{"CHROME HELPER and ChatGPT", "Google Chrome"}, Row{"Codex and Claude", "Claude"},
        Row{"Cursor for Codex", "Codex"}, Row{"Visual Studio Code Cursor", "Cursor"},
        Row{"Code", "Visual Studio Code"}, Row{"Code Helper (GPU)", "Visual Studio Code"},
        Row{"Visual Studio Code - Insiders", "Visual Studio Code"},
        Row{"Claude for ChatGPT", "ChatGPT"}, Row{"Windsurf in Arc", "Windsurf"},
        Row{"Firefox, Safari", "Safari"}, Row{"Search in Safari", "Arc"},
        Row{"iTerminal", "iTerm2"}, Row{"  Warp Helper (Renderer) ", "Warp"},
        Row{"X Helper helper", "X helper"}})
    EXPECT_EQ(canonical(name), family) << name;
}

TEST(AgentAppName, TellsNoiseAndBrowsers) {
  for (const char* noisy : {"com.apple.AuthenticationServicesHelper", "AutoFill (Claude)",
                            "crashpad_handler", "Safari GPU Process", "AutoUpdate", "Updater",
                            "Claude Sparkle Renderer", "Google Chrome Helper (Renderer)"})
    EXPECT_TRUE(isNoisy(noisy)) << noisy;
  for (const char* heard : {"Claude AutoUpdate Helper", "Foo Updater", "Claude Helper (Renderer)",
                            "Codex Helper (Renderer)", "ChatGPT Helper (Renderer)", ""})
    EXPECT_FALSE(isNoisy(heard)) << heard;
  for (const char* browser : {"Google Chrome Helper (GPU)", "arc", "Firefox", "Browser Helper"})
    EXPECT_TRUE(requiresMultiWordPhrases(browser) && !canUseCPUSignal(browser)) << browser;
  EXPECT_TRUE(canUseCPUSignal("browser") && !requiresMultiWordPhrases(""));
}

TEST(AgentAppName, ShortensReasons) {
  for (const auto& [reason, label] :
       {Row{"Target app Claude is using cpu", "CPU activity"},
        Row{"accessibility and CPU", "CPU activity"}, Row{"by ACCESSIBILITY", "UI text signal"},
        Row{"Target app Claude is active", "Claude active"},
        Row{"target app This is it", "target app Thit"}})
    EXPECT_EQ(cleanedReason(reason), label);
}

}  // namespace wakelatch
