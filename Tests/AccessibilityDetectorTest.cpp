#include "WakelatchCore/AccessibilityDetector.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "Tests/ScriptedAccessibility.h"

namespace wakelatch {
namespace {

using ::testing::ElementsAre;
using Element = platform::Accessibility::Element;
using Names = std::vector<std::string>;

const auto claudeApp = "com.Anthropic.ClaudeForDesktop", terminal = "com.apple.Terminal";
const auto element = ScriptedAccessibility::element;

class AccessibilityDetectorTest : public ::testing::Test {
 protected:
  /// Each signal as "3 Claude: Thinking", sorted.
  Names detect() {
    Names found;
    for (const ActivitySignal& signal : detector.detectPerApp(settings)) {
      const bool isStrong = signal.strength == SignalStrength::strong;
      EXPECT_EQ(signal.reason, std::string("UI text matched ") + (isStrong ? "active" : "idle") +
                                   " phrase \"" + *signal.matchedText + "\"");
      found.push_back((isStrong ? "3 " : "1 ") + *signal.appName + ": " + *signal.matchedText);
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  ScriptedAccessibility screen;
  AccessibilityDetector detector{screen};
  GuardSettings settings;
};

TEST_F(AccessibilityDetectorTest, JudgesEachApplicationByItsKind) {
  settings.targetApps = {"notes.app ", "Note", "Terminal"};
  settings.activePhrases = {"busy"};
  settings.idlePhrases = {"your turn"};
  const struct {
    const char *bundleID, *name, *text;
    Names expected;
  } rows[] = {
      {claudeApp, "", "THINKING…", {"3 Claude: Thinking"}},
      {claudeApp, "Claude", "Message\nclaude, tokens used", {"1 Claude: Message Claude"}},
      {"com.google.Chrome", "Chrome", "Stop generating", {}},  // not watched by default
      // A terminal's text counts for every command-line agent, but not for a single word.
      {terminal, "", "Tokens used", {"3 Claude Code: tokens used", "3 Codex CLI: tokens used"}},
      {terminal, "Terminal", "42 tokens, Working, Tokens: 7, busy, Stop generating", {}},
      // The user's own targets go by name; only the first entry that matches is tried.
      {"com.apple.Notes", "Notes", "BUSY, your turn", {"3 notes.app : busy"}},
      {"", "NOTES", "your\tturn", {"1 notes.app : your turn"}},
      {"", "", "busy", {}}};
  for (const auto& row : rows) {
    screen.running.clear();
    screen.show(row.bundleID, row.name, row.text);
    EXPECT_EQ(detect(), row.expected) << row.bundleID << " " << row.text;
  }
  screen.show("", "Notes", "hello");
  settings.idlePhrases = {"hello"};
  EXPECT_EQ(detect(), Names{"1 notes.app : hello"}) << "with phrases changed";
  screen.show(terminal, "", "Tokens used");
  settings.disabledAgentIDs = {"claude-code"};
  EXPECT_EQ(detect(), (Names{"1 notes.app : hello", "3 Codex CLI: tokens used"}));
}

TEST_F(AccessibilityDetectorTest, KeepsTheStrongestSignalOfAName) {
  for (const char* text : {"How can I help", "Thinking", "Stop response"})
    screen.show(claudeApp, "Claude", text);
  screen.show("com.openai.chat", "ChatGPT", "Ask anything");
  EXPECT_EQ(detect(), (Names{"1 ChatGPT: Ask anything", "3 Claude: Thinking"}));
  EXPECT_EQ(detector.detect(settings).appName, "Claude");
  screen.reads.clear();
  settings.accessibilityDetectionEnabled = false;
  EXPECT_EQ(detect(), Names{});
  settings.accessibilityDetectionEnabled = true;
  screen.trusted = false;
  EXPECT_EQ(detector.detect(settings), ActivitySignal::none());
  EXPECT_TRUE(screen.reads.empty());
}

TEST_F(AccessibilityDetectorTest, ReadsTheFocusedWindowElseTheFirstThree) {
  const platform::Accessibility::OtherValue other;
  const Element a = element({{"AXTitle", "a"}}), empty = element({{"AXTitle", ""}}), none;
  const std::vector children{element({{"AXChildren", std::vector{a}}}), a};
  ScriptedAccessibility::Attributes of{{"AXHelp", "help"}, {"AXTitle", " title "}};
  of["AXDescription"] = " \n ", of["AXValue"] = other, of["AXChildren"] = children;
  const std::vector windows{a, element(of), empty, a, none};
  const std::pair<platform::Accessibility::Value, const char*> rows[] = {
      {{}, "a  title  help a a"}, {"text", "a  title  help a a"}, {empty, ""}, {a, "a"}};
  for (const auto& [focused, text] : rows) {
    const auto id = screen.start("", "", {{"AXFocusedWindow", focused}, {"AXWindows", windows}});
    EXPECT_EQ(detector.visibleText(id), text);
    EXPECT_THAT(detector.windowTitles(id), ElementsAre("a", " title ", "", "a"));
  }
  EXPECT_EQ(detector.windowTitles(screen.start("", "", {{"AXWindows", other}})), Names{});
}

TEST_F(AccessibilityDetectorTest, ReadsNoMoreThanItsLimits) {
  const auto node = [](const Element& child, std::size_t count) {
    return element({{"AXTitle", "t"}, {"AXChildren", std::vector<Element>(count, child)}});
  };
  Element chain = node(nullptr, 0);
  for (int level = 0; level < 9; ++level) chain = node(chain, 1);
  ScriptedAccessibility::Attributes texts{{"AXTitle", "1"}, {"AXValue", "2"}};
  const Element two = element(texts);
  texts["AXDescription"] = texts["AXHelp"] = "3";
  const Element four = element(texts);
  const struct {
    ScriptedAccessibility::Attributes application;
    int fragments, texts, children;  // found; reads of each text attribute and of the children
  } rows[] = {{{{"AXFocusedWindow", chain}}, 5, 5, 4},
              {{{"AXWindows", std::vector(5, chain)}}, 12, 12, 9},
              {{{"AXFocusedWindow", node(node(nullptr, 0), 100)}}, 81, 81, 81},
              {{{"AXFocusedWindow", node(node(four, 60), 60)}}, 303, 78, 77},
              {{{"AXWindows", std::vector(3, node(two, 80))}}, 300, 151, 150}};
  for (const auto& row : rows) {
    screen.reads.clear();
    const std::string text = detector.visibleText(screen.start("", "", row.application));
    EXPECT_EQ(std::count(text.begin(), text.end(), ' ') + 1, row.fragments);
    for (const char* name : {"AXTitle", "AXValue", "AXDescription", "AXHelp"})
      EXPECT_EQ(screen.reads[name], row.texts);
    EXPECT_EQ(screen.reads["AXChildren"], row.children);
  }
}

TEST_F(AccessibilityDetectorTest, BreaksOffWhatExceedsItsBudget) {
  Element chain = element({{"AXTitle", "t"}});
  for (int level = 0; level < 4; ++level)
    chain = element({{"AXTitle", "t"}, {"AXChildren", std::vector(20, chain)}});
  for (const char* name : {"1", "2", "3"})
    screen.start(claudeApp, name, {{"AXFocusedWindow", chain}});
  const double no = ReadingBudget::unlimited;
  const std::size_t all = ReadingBudget().absentValues;
  const struct {
    ReadingBudget budget;
    double delay;
    int least, most;                             // reads of all applications
  } rows[] = {{{}, 0, 3657, 3657},               // the bounds of the walk alone
              {{no, no, no, 100}, 0, 375, 450},  // some three of five are absent
              {{no, no, 0, all}, 0, 0, 0},
              {{no, 0.03, no, all}, 0.005, 3, 21},
              {{no, no, 0.03, all}, 0.005, 1, 7},
              {{0.01, no, no, all}, 60, 3, 3},
              {{no, no, 0.05, all}, 60, 1, 1}};
  for (const auto& row : rows) {
    screen.reads.clear();
    screen.delay = row.delay;
    AccessibilityDetector(screen, row.budget).detect(settings);
    int reads = 0;
    for (const auto& [name, count] : screen.reads) reads += count;
    EXPECT_TRUE(reads >= row.least && reads <= row.most) << &row - rows << ": " << reads;
  }
  screen.running.resize(1);
  screen.delay = 0;
  AccessibilityDetector brief(screen, {no, no, no, 6});
  EXPECT_EQ(brief.visibleText(screen.running[0].processID), "t t") << "what was read counts";
}

}  // namespace
}  // namespace wakelatch
