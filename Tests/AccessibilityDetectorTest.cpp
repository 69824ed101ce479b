#include "WakelatchCore/AccessibilityDetector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "Tests/ScriptedAccessibility.h"

namespace wakelatch {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

constexpr const char* claudeApp = "com.anthropic.claudefordesktop";
constexpr const char* terminal = "com.apple.Terminal";

class AccessibilityDetectorTest : public ::testing::Test {
 protected:
  static platform::Accessibility::Element element(ScriptedAccessibility::Attributes attributes) {
    return ScriptedAccessibility::element(std::move(attributes));
  }
  static std::vector<platform::Accessibility::Element> copies(
      std::size_t count, const platform::Accessibility::Element& of) {
    return ScriptedAccessibility::copies(count, of);
  }
  static ActivitySignal active(const std::string& name, const std::string& phrase) {
    return {SignalStrength::strong, name, "UI text matched active phrase \"" + phrase + "\"",
            phrase};
  }
  static ActivitySignal idle(const std::string& name, const std::string& phrase) {
    return {SignalStrength::presence, name, "UI text matched idle phrase \"" + phrase + "\"",
            phrase};
  }

  ScriptedAccessibility screen;
  AccessibilityDetector detector{screen};
  GuardSettings settings;
};

TEST_F(AccessibilityDetectorTest, ReadsNothingWhenItMayNot) {
  screen.show(claudeApp, "Claude", "Thinking");
  settings.accessibilityDetectionEnabled = false;
  EXPECT_THAT(detector.detectPerApp(settings), IsEmpty());
  settings.accessibilityDetectionEnabled = true;
  screen.trusted = false;
  EXPECT_EQ(detector.detect(settings), ActivitySignal::none);
  EXPECT_EQ(screen.listings, 0);
  EXPECT_EQ(screen.applicationReads, 0);
  EXPECT_EQ(screen.prompts, 0);
  detector.requestPermissionPrompt();
  EXPECT_EQ(screen.prompts, 1);
}

TEST_F(AccessibilityDetectorTest, JudgesEachApplicationByItsKind) {
  settings.targetApps = {"notes.app ", "Note", "Terminal"};
  settings.activePhrases = {"busy"};
  settings.idlePhrases = {"your turn"};
  const struct {
    const char *bundleID, *name, *text;
    std::vector<ActivitySignal> expected;
  } rows[] = {
      {claudeApp, "Claude", "THINKING…", {active("Claude", "Thinking")}},
      {"COM.Anthropic.ClaudeForDesktop", "", "Message\nclaude", {idle("Claude", "Message Claude")}},
      {claudeApp, "Claude", "busy", {}},
      {"com.google.Chrome", "Google Chrome", "Stop generating", {}},  // not watched by default
      // A terminal's text counts for every command-line agent, but not for a single word.
      {terminal,
       "Terminal",
       "(esc to interrupt)",
       {active("Claude Code", "esc to interrupt"), active("Codex CLI", "esc to interrupt"),
        active("Gemini CLI", "esc to interrupt"), active("Copilot CLI", "esc to interrupt"),
        active("OpenCode", "esc to interrupt"), active("Grok Build", "to interrupt"),
        active("Aider", "to interrupt"), active("Qwen Code", "esc to interrupt"),
        active("Pi", "esc to interrupt")}},
      {terminal, "Terminal", "42 tokens, Working, Tokens: 7", {}},
      {terminal,
       "Terminal",
       "Context  left; context left",
       {active("Claude Code", "Context left")}},
      {terminal, "Terminal", "busy; Thinking; Stop generating", {}},
      // The user's own targets: by name, the first entry that matches and no other.
      {"com.apple.Notes", "Notes", "BUSY, your turn", {active("notes.app ", "busy")}},
      {"", "NOTES", "your\tturn", {idle("notes.app ", "your turn")}},
      {"", "Notes", "Thinking", {}},
      {"", "Pages", "busy", {}},
      {"", "", "busy", {}},
  };
  for (const auto& row : rows) {
    screen.running.clear();
    screen.show(row.bundleID, row.name, row.text);
    EXPECT_THAT(detector.detectPerApp(settings), ::testing::UnorderedElementsAreArray(row.expected))
        << row.bundleID << " " << row.text;
  }
  screen.running = {{std::nullopt, std::nullopt, 1}};
  EXPECT_THAT(detector.detectPerApp(settings), IsEmpty());
}

TEST_F(AccessibilityDetectorTest, KeepsTheStrongestSignalOfAName) {
  screen.show(claudeApp, "Claude", "How can I help");
  screen.show(claudeApp, "Claude", "Thinking");
  screen.show(claudeApp, "Claude", "Stop response");
  screen.show("com.openai.chat", "ChatGPT", "Ask anything");
  EXPECT_THAT(detector.detectPerApp(settings),
              UnorderedElementsAre(active("Claude", "Thinking"), idle("ChatGPT", "Ask anything")));
  EXPECT_EQ(detector.detect(settings), active("Claude", "Thinking"));
  EXPECT_EQ(screen.applicationReads, 2 * 4) << "each text is read once a call";
}

TEST_F(AccessibilityDetectorTest, FollowsChangesOfThePhrases) {
  settings.targetApps = {"Notes"};
  screen.show("", "Notes", "one two");
  for (const char* phrase : {"one", "two"}) {
    settings.activePhrases = {phrase};
    EXPECT_THAT(detector.detectPerApp(settings), ElementsAre(active("Notes", phrase)));
  }
}

TEST_F(AccessibilityDetectorTest, JoinsTextInTreeOrder) {
  using Other = platform::Accessibility::OtherValue;
  const auto leaf = element({{"AXTitle", "leaf"}});
  const auto branch = element({{"AXHelp", "help"},
                               {"AXTitle", " title "},
                               {"AXDescription", " \n "},
                               {"AXValue", Other()},
                               {"AXChildren", std::vector{leaf, leaf}}});
  const auto window = element({{"AXValue", leaf}, {"AXChildren", std::vector{branch, leaf}}});
  const auto processID = screen.start("", "", {{"AXFocusedWindow", window}});
  EXPECT_EQ(detector.visibleText(processID), " title  help leaf leaf leaf");
  EXPECT_EQ(detector.visibleText(1), "");
}

TEST_F(AccessibilityDetectorTest, TakesTheFirstWindowsOnlyWithoutAFocusedOne) {
  const auto windows = [&] {
    std::vector<platform::Accessibility::Element> list;
    for (const char* title : {"a", "b", "", "d"}) list.push_back(element({{"AXTitle", title}}));
    return list;
  }();
  const struct {
    platform::Accessibility::Value focused;
    const char* text;
  } rows[] = {{{}, "a b"}, {"no window", "a b"}, {windows[3], "d"}, {element({}), ""}};
  for (const auto& row : rows) {
    const auto id =
        screen.start("", "", {{"AXFocusedWindow", row.focused}, {"AXWindows", windows}});
    EXPECT_EQ(detector.visibleText(id), row.text);
    EXPECT_THAT(detector.windowTitles(id), ElementsAre("a", "b", "", "d"));
  }
  const auto untitled = element({{"AXTitle", platform::Accessibility::OtherValue()}});
  const auto id = screen.start("", "", {{"AXWindows", std::vector{untitled, windows[0]}}});
  EXPECT_THAT(detector.windowTitles(id), ElementsAre("a"));
  EXPECT_THAT(detector.windowTitles(screen.start("", "", {{"AXWindows", "none"}})), IsEmpty());
}

/// How often each attribute is read, and how many words come of it.
TEST_F(AccessibilityDetectorTest, ReadsNoMoreThanItsLimits) {
  const auto node = [](const platform::Accessibility::Element& child, std::size_t count) {
    return element({{"AXTitle", "t"}, {"AXChildren", copies(count, child)}});
  };
  auto chain = node(nullptr, 0);
  for (int level = 0; level < 9; ++level) chain = node(chain, 1);
  const auto wide = node(node(nullptr, 0), 100);
  const auto full =
      element({{"AXTitle", "t"}, {"AXValue", "v"}, {"AXDescription", "d"}, {"AXHelp", "h"}});
  const auto oneTwo = element({{"AXTitle", "1"}, {"AXValue", "2"}});
  const struct {
    const char* what;
    ScriptedAccessibility::Attributes application;
    std::size_t words;
    int texts, children;  // reads of each text attribute, reads of the children
  } rows[] = {
      {"depth of the focused window", {{"AXFocusedWindow", chain}}, 5, 5, 4},
      {"depth of other windows", {{"AXWindows", copies(5, chain)}}, 12, 12, 9},
      {"children", {{"AXFocusedWindow", wide}}, 81, 81, 81},
      {"fragments", {{"AXFocusedWindow", node(node(full, 60), 60)}}, 303, 78, 77},
      {"fragments of all windows", {{"AXWindows", copies(3, node(oneTwo, 80))}}, 300, 151, 150},
  };
  for (const auto& row : rows) {
    const auto id = screen.start("", "", row.application);
    screen.reads.clear();
    const std::string text = detector.visibleText(id);
    EXPECT_EQ(static_cast<std::size_t>(std::count(text.begin(), text.end(), ' ')) + 1, row.words)
        << row.what;
    const bool focused = row.application.count("AXFocusedWindow") > 0;
    EXPECT_EQ(screen.reads["AXWindows"], focused ? 0 : 1) << row.what;
    for (const char* name : {"AXTitle", "AXValue", "AXDescription", "AXHelp"}) {
      EXPECT_EQ(screen.reads[name], row.texts) << row.what << " " << name;
    }
    EXPECT_EQ(screen.reads["AXChildren"], row.children) << row.what;
  }
}

}  // namespace
}  // namespace wakelatch
