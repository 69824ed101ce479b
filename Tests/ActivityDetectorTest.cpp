#include "WakelatchCore/ActivityDetector.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "Tests/ScriptedAccessibility.h"
#include "Tests/ScriptedRunner.h"

namespace wakelatch {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Timestamp start{std::chrono::duration<double>(1e9)};

/// Files by the pattern that matches them.
struct ScriptedFiles : FileActivityProbing {
  std::map<std::string, ModificationsByPath> files;

  ModificationsByPath sessionModifications(
      const std::vector<std::string>& patterns) const override {
    ModificationsByPath found;
    for (const auto& pattern : patterns) {
      if (files.count(pattern) > 0)
        found.insert(files.at(pattern).begin(), files.at(pattern).end());
    }
    return found;
  }
  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override {
    std::optional<Timestamp> newest;
    for (const auto& [path, time] : sessionModifications(patterns)) {
      newest = newest ? std::max(*newest, time) : time;
    }
    return newest;
  }
};

class ActivityDetectorTest : public ::testing::Test {
 protected:
  ActivityDetectorTest() {
    list("");
    runner.on({"/bin/ps", {"-axo", "pid=,args="}}, "");
  }
  std::vector<ActivitySignal> detectAt(double seconds) {
    return detector.detectPerApp(settings, PowerSnapshot(), after(start, seconds));
  }
  /// What became of the only agent: nothing when none was found or not just one.
  std::optional<ActivitySignal> onlySignal() {
    const auto signals = detectAt(0);
    return signals.size() == 1 ? std::optional(signals.front()) : std::nullopt;
  }
  std::vector<std::string> namesDetected() {
    std::vector<std::string> names;
    for (const auto& signal : detectAt(0)) names.push_back(*signal.appName);
    return names;
  }
  /// Has these processes run from now on.
  void list(const std::string& processes) {
    runner.on({"/bin/ps", {"-axo", "pid=,ppid=,pcpu=,comm="}}, processes);
  }
  void showTerminal(const std::string& text) {
    screen.show("com.apple.Terminal", "Terminal", text);
  }

  ScriptedRunner runner;
  ScriptedAccessibility screen;
  ScriptedFiles files;
  ProcessDetector processDetector{runner};
  AccessibilityDetector accessibilityDetector{screen};
  SessionActivityDetector sessionDetector{files};
  ActivityDetector detector{processDetector, accessibilityDetector, sessionDetector};
  GuardSettings settings;
};

constexpr const char* claudeFiles = ".claude/projects/**/*.jsonl";
constexpr const char* openCodeFiles = ".local/share/opencode/*.db-wal";

TEST_F(ActivityDetectorTest, FindsNothingWithoutEvidence) {
  EXPECT_THAT(detectAt(0), IsEmpty());
  EXPECT_EQ(detector.detect(settings, PowerSnapshot(), start), ActivitySignal::none);
}

TEST_F(ActivityDetectorTest, BelievesSharedEvidenceWhileTheProcessIsRecent) {
  showTerminal("Context left: 12 %");  // Claude Code's alone
  const struct {
    double at;
    const char* listing;
    bool isBelieved, isPresent;
  } ticks[] = {
      {0, "", false, false},
      {10, "7 1 0.0 /bin/claude\n8 1 0.0 /bin/opencode\n", true, true},
      {20, "", true, false},
      {100, "", true, false},
      {100.001, "", false, false},
      {200, "7 1 0.0 /bin/claude\n8 1 0.0 /bin/opencode\n", true, true},
      {150, "", true, false},  // the clock was set back
  };
  for (const auto& tick : ticks) {
    list(tick.listing);
    files.files[openCodeFiles] = {{"x.db-wal", after(start, tick.at - 5)}};
    const auto evidence = detector.gather(settings, PowerSnapshot(), after(start, tick.at));
    for (const auto* findings : {&evidence.accessibility, &evidence.session}) {
      EXPECT_EQ(findings->kept.size(), tick.isBelieved ? 1 : 0) << tick.at;
      EXPECT_EQ(findings->dropped.size(), tick.isBelieved ? 0 : 1) << tick.at;
    }
    EXPECT_EQ(evidence.process.size(), tick.isPresent ? 2 : 0) << tick.at;
    EXPECT_EQ(evidence.merged.size(), tick.isBelieved ? 2 : 0) << tick.at;
    for (const auto& signal : evidence.merged) {
      EXPECT_EQ(signal.strength, SignalStrength::strong) << tick.at;
      EXPECT_EQ(signal.processPresent, tick.isPresent) << tick.at;
    }
  }
  EXPECT_EQ(detector.processLastSeenAt("OpenCode"), after(start, 200));
  EXPECT_EQ(detector.processLastSeenAt("Codex CLI"), std::nullopt);
}

TEST_F(ActivityDetectorTest, BelievesAnAgentsOwnEvidenceWithoutItsProcess) {
  settings.targetApps = {"Notes"};
  settings.activePhrases = {"busy"};
  screen.show("com.apple.Notes", "Notes", "busy");
  screen.show("com.openai.chat", "ChatGPT", "Generating");
  files.files[claudeFiles] = {{"x.jsonl", after(start, -5)}};
  EXPECT_THAT(namesDetected(), ElementsAre("ChatGPT", "Claude Code", "Notes"));
}

TEST_F(ActivityDetectorTest, KeepsOneSignalPerAgent) {
  constexpr const char* busy = "7 1 50.0 /bin/claude\n";
  constexpr const char* quiet = "7 1 0.0 /bin/claude\n";
  const std::string cpu = "Claude Code CPU is above the work threshold";
  const std::string text = "UI text matched active phrase \"Context left\"";
  const std::string file = "Claude Code session active (5s ago)";
  const struct {
    const char *listing, *text;
    bool isFileFresh;
    std::string reason;
  } rows[] = {
      {quiet, "", false, "Claude Code is running"},
      {busy, "", false, cpu},
      {quiet, "context left", false, text},
      {busy, "context left", false, text},  // as strong, but it names its text
      {busy, "", true, cpu},                // as strong, so the earlier source
      {quiet, "", true, file},
      {"", "", true, file},
      {quiet, "context left", true, text},
  };
  for (const auto& row : rows) {
    list(row.listing);
    screen.running.clear();
    showTerminal(row.text);
    files.files[claudeFiles] = {{"x.jsonl", after(start, row.isFileFresh ? -5 : -500)}};
    const auto signal = onlySignal();
    ASSERT_TRUE(signal) << row.reason;
    EXPECT_EQ(signal->reason, row.reason);
    EXPECT_EQ(signal->processPresent, *row.listing != '\0');
  }
}

TEST_F(ActivityDetectorTest, CountsSessionFilesBeforeProcesses) {
  const struct {
    const char* listing;
    std::vector<double> ages;  // of Claude Code's session files
    std::optional<std::int64_t> count;
  } rows[] = {
      {"7 1 0.0 /bin/claude\n", {5, 200, 300, 301}, 3},
      {"7 1 0.0 /bin/claude\n", {}, std::nullopt},            // none at work, whatever runs
      {"7 1 0.0 /bin/gemini\n8 1 0.0 /bin/gemini\n", {}, 2},  // has no session files
  };
  for (const auto& row : rows) {
    list(row.listing);
    files.files[claudeFiles].clear();
    for (const double age : row.ages) {
      files.files[claudeFiles][std::to_string(age)] = after(start, -age);
    }
    const auto signal = onlySignal();
    ASSERT_TRUE(signal) << row.listing;
    EXPECT_EQ(signal->sessionCount, row.count) << row.listing;
  }
}

TEST_F(ActivityDetectorTest, SortsByComposedName) {
  const std::string decomposed = "A\u030Ab";  // composed, its first letter comes after Z
  settings.targetApps = {"zed app", "Zoo", decomposed};
  settings.activePhrases = {"busy"};
  for (const auto& name : settings.targetApps) screen.show("", name, "busy");
  list("7 1 0.0 /bin/codex\n8 1 0.0 /bin/claude\n");
  EXPECT_THAT(namesDetected(),
              ElementsAre("Claude Code", "Codex CLI", "Zoo", "zed app", decomposed));
  EXPECT_EQ(detector.detect(settings, PowerSnapshot(), start).appName, "Zoo");
}

}  // namespace
}  // namespace wakelatch
