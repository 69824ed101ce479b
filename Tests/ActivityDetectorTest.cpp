#include "WakelatchCore/ActivityDetector.h"

#include <gmock/gmock.h>

#include "Tests/ScriptedAccessibility.h"
#include "Tests/ScriptedRunner.h"

namespace wakelatch {
namespace {

using ::testing::ElementsAre, ::testing::Return;
using Patterns = std::vector<std::string>;
using Newest = std::optional<Timestamp>;

constexpr Timestamp someTime{std::chrono::duration<double>(1e9)};

struct ScriptedFiles : FileActivityProbing {
  MOCK_METHOD(Newest, newestModification, (const Patterns&), (const, override));
  MOCK_METHOD(ModificationsByPath, sessionModifications, (const Patterns&), (const, override));
};

class ActivityDetectorTest : public ::testing::Test {
 protected:
  ActivityDetectorTest() {
    list("");
    runner.on({"/bin/ps", {"-axo", "pid=,args="}}, "");
  }
  /// Has these processes run from now on.
  void list(const std::string& processes) {
    runner.on({"/bin/ps", {"-axo", "pid=,ppid=,pcpu=,comm="}}, processes);
  }
  /// Has the files that only `pattern` matches changed so many seconds after `someTime`.
  void write(const std::string& pattern, const std::vector<double>& times) {
    ModificationsByPath found;
    for (const double time : times) found["/" + std::to_string(time)] = after(someTime, time);
    ON_CALL(files, sessionModifications(ElementsAre(pattern))).WillByDefault(Return(found));
    const Newest newest = times.empty() ? Newest() : after(someTime, times[0]);
    ON_CALL(files, newestModification(ElementsAre(pattern))).WillByDefault(Return(newest));
  }

  ScriptedRunner runner;
  ScriptedAccessibility screen;
  ::testing::NiceMock<ScriptedFiles> files;
  ProcessDetector processDetector{runner};
  AccessibilityDetector accessibilityDetector{screen};
  SessionActivityDetector sessionDetector{files};
  ActivityDetector detector{processDetector, accessibilityDetector, sessionDetector};
  const PowerSnapshot power;
  GuardSettings settings;
};

TEST_F(ActivityDetectorTest, BelievesSharedEvidenceWhileTheProcessIsRecent) {
  screen.show("com.apple.Terminal", "Terminal", "Context left: 12 %");  // Claude Code's alone
  using Tick = std::tuple<double, bool, bool>;  // the last one after the clock was set back
  for (const auto& [at, isRunning, isBelieved] :
       {Tick{0, false, false}, Tick{10, true, true}, Tick{20, false, true}, Tick{100, false, true},
        Tick{100.001, false, false}, Tick{200, true, true}, Tick{150, false, true}}) {
    list(isRunning ? "7 1 0.0 /bin/claude\n8 1 0.0 /bin/opencode\n" : "");
    write(".local/share/opencode/*.db-wal", {at - 5});
    const auto evidence = detector.gather(settings, power, after(someTime, at));
    for (const auto* findings : {&evidence.accessibility, &evidence.session}) {
      EXPECT_EQ(findings->kept.size(), isBelieved ? 1 : 0) << at;
      EXPECT_EQ(findings->dropped.size(), isBelieved ? 0 : 1) << at;
    }
    EXPECT_EQ(evidence.merged.size(), isBelieved ? 2 : 0) << at;
    for (const auto& signal : evidence.merged)
      EXPECT_TRUE(signal.strength == SignalStrength::strong && signal.processPresent == isRunning)
          << at;
  }
}

TEST_F(ActivityDetectorTest, KeepsOneSignalPerAgentAndCountsItsSessions) {
  const auto busy = "7 1 50.0 /bin/claude\n", quiet = "7 1 0.0 /bin/claude\n";
  const struct {
    const char *listing, *text;
    std::vector<double> times;  // of session files, newest first
    std::string reason;
    std::optional<std::int64_t> sessions;
  } rows[] = {{quiet, "", {}, "Claude Code is running", {}},
              {busy, "", {-61, -300, -301}, "Claude Code CPU is above the work threshold", 2},
              {quiet, "context left", {}, "UI text matched active phrase \"Context left\"", {}},
              // Equally strong: the earlier source, but for one that names its text.
              {busy, "context left", {-5}, "UI text matched active phrase \"Context left\"", 1},
              {quiet, "", {-5, -60}, "Claude Code session active (5s ago)", 2},
              {"", "", {-5}, "Claude Code session active (5s ago)", 1},
              {"7 1 0 /bin/gemini\n8 1 0 /bin/gemini\n", "", {}, "Gemini CLI is running", 2}};
  for (const auto& row : rows) {
    list(row.listing);
    screen.running.clear();
    screen.show("com.apple.Terminal", "Terminal", row.text);
    write(".claude/projects/**/*.jsonl", row.times);
    const auto signals = detector.detectPerApp(settings, power, someTime);
    ASSERT_EQ(signals.size(), 1u) << row.reason;
    EXPECT_EQ(signals[0].reason, row.reason);
    EXPECT_EQ(signals[0].sessionCount, row.sessions) << row.reason;
    EXPECT_EQ(signals[0].processPresent, *row.listing != '\0') << row.reason;
  }
}

TEST_F(ActivityDetectorTest, SortsByComposedName) {
  EXPECT_EQ(detector.detect(settings, power, someTime), ActivitySignal::none());
  settings.targetApps = {"zed app", "Zoo", "A\u030Ab"};  // composed, Å comes after Z
  settings.activePhrases = {"busy"};
  for (const auto& name : settings.targetApps) screen.show("", name, "busy");
  list("7 1 0.0 /bin/codex\n8 1 0.0 /bin/claude\n");
  std::string names;
  for (const auto& signal : detector.detectPerApp(settings, power, someTime))
    names += *signal.appName + ";";
  EXPECT_EQ(names, "Claude Code;Codex CLI;Zoo;zed app;A\u030Ab;");
  EXPECT_EQ(detector.detect(settings, power, someTime).appName, "Zoo");
}

}  // namespace
}  // namespace wakelatch
