#include "WakelatchCore/AgentAppName.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <vector>

namespace wakelatch {
namespace {

using namespace AgentAppName;
using Texts = std::vector<std::pair<const char*, const char*>>;

TEST(AgentAppName, NormalizesAndMatches) {
  for (const auto& [name, key] : Texts{{"Claude Desktop", "claude"},
                                       {"Cursor.app", "cursor"},
                                       {"\u00a0ChatGPT\n", "chatgpt"},
                                       {"A DESKTOP desktop.APP.app", "a"},
                                       {"x.a.apppp y", "x.app y"},
                                       {"\u212aiRO", "kiro"},
                                       {"\xff Desktop", "\xff"},
                                       {"", ""}}) {
    EXPECT_EQ(normalized(name), key) << name;
  }
  for (const auto& [name, target, match] : {std::tuple{"Claude Desktop", "Claude", true},
                                            {"claude", "Claude.app", true},
                                            {"Visual Studio Code", "Code", true},
                                            {"Code", "Visual Studio Code", true},
                                            {"Claude", "Codex", false},
                                            {"Claude", "", false},
                                            {"Claude", " desktop", false},
                                            {"", "Claude", false}}) {
    EXPECT_EQ(matches(name, target), match) << name << " against " << target;
  }
}

TEST(AgentAppName, NamesTheFamilyByTheFirstRule) {
  for (const auto& [name, family] : Texts{{"Chrome", "Google Chrome"},
                                          {"Chromium", "Chromium"},
                                          {"CHROME HELPER (GPU)", "Google Chrome"},
                                          {"ChatGPT for Google Chrome", "Google Chrome"},
                                          {"Claude via ChatGPT", "ChatGPT"},
                                          {"Codex and Claude", "Claude"},
                                          {"Cursor for Codex", "Codex"},
                                          {"Visual Studio Code Cursor", "Cursor"},
                                          {"Code", "Visual Studio Code"},
                                          {"Code Helper (Plugin)", "Visual Studio Code"},
                                          {"Xcode", "Xcode"},
                                          {"Windsurf Search", "Windsurf"},
                                          {"Search in Safari", "Arc"},
                                          {"Safari and Firefox", "Safari"},
                                          {"Firefox", "Firefox"},
                                          {"iTerminal", "iTerm2"},
                                          {"com.apple.Terminal", "Terminal"},
                                          {"Warp Helper (Renderer)", "Warp"},
                                          {"  Notes Helper  ", "Notes"},
                                          {"X Helper helper", "X helper"},
                                          {"", ""}}) {
    EXPECT_EQ(canonical(name), family) << name;
  }
}

TEST(AgentAppName, TellsNoiseAndBrowsers) {
  for (const auto& [name, noisy] : {std::pair{"com.apple.AuthenticationServicesHelper", true},
                                    {"AutoFill (Claude)", true},
                                    {"crashpad_handler", true},
                                    {"Safari GPU Process", true},
                                    {"AutoUpdate", true},
                                    {"Claude AutoUpdate Helper", false},
                                    {"Updater", true},
                                    {"Foo Updater", false},
                                    {"Claude Sparkle Renderer", true},
                                    {"Google Chrome Helper (Renderer)", true},
                                    {"Claude Helper (Renderer)", false},
                                    {"Codex Helper (Renderer)", false},
                                    {"ChatGPT Helper (Renderer)", false},
                                    {"", false}}) {
    EXPECT_EQ(isNoisy(name), noisy) << name;
  }
  for (const auto& [name, browser] : {std::pair{"Google Chrome Helper (GPU)", true},
                                      {"Arc", true},
                                      {"safari", true},
                                      {"Firefox", true},
                                      {"Browser Helper", true},
                                      {"browser", false},
                                      {"Claude", false},
                                      {"", false}}) {
    EXPECT_EQ(canUseCPUSignal(name), !browser) << name;
    EXPECT_EQ(requiresMultiWordPhrases(name), browser) << name;
  }
}

TEST(AgentAppName, ShortensReasons) {
  for (const auto& [reason, label] : Texts{{"Target app Claude is using cpu", "CPU activity"},
                                           {"accessibility and CPU", "CPU activity"},
                                           {"Found by ACCESSIBILITY", "UI text signal"},
                                           {"Target app Claude is active", "Claude active"},
                                           {"target app This is it", "target app Thit"},
                                           {" Target app ", ""}}) {
    EXPECT_EQ(cleanedReason(reason), label) << reason;
  }
}

}  // namespace
}  // namespace wakelatch
