#include "WakelatchCore/SessionActivityDetector.h"

#include <gtest/gtest.h>

#include <cmath>

#include "Tests/TemporaryDirectory.h"
#include "Tests/TouchFile.h"

namespace wakelatch {

constexpr Timestamp now{std::chrono::duration<double>(1'700'000'000)};

TEST(SessionActivityDetector, FreshFilesGiveASignalThatTellsTheirAge) {
  using Row = std::tuple<double, double, const char*>;
  for (const auto& [age, window, shown] :
       {Row{60, 60, "60"}, Row{60.001, 60, ""}, Row{12.75, 60, "12"}, Row{-5.5, 0, "0"},
        Row{1e19, HUGE_VAL, "10000000000000000000"}, Row{std::nan(""), 60, ""}}) {
    const auto signal = SessionActivityDetector::signal("Pi", after(now, -age), now, window);
    EXPECT_EQ(signal ? signal->reason : "Pi session active (s ago)",
              std::string("Pi session active (") + shown + "s ago)");
  }
}

TEST(SessionActivityDetector, JudgesAgentsByTheirFiles) {
  const TemporaryDirectory home;
  using File = std::pair<const char*, double>;
  for (const auto& [file, age] :
       {File{".claude/projects/p/1.jsonl", 200},
        File{".claude/projects/p/deeper/my-agent-2.jsonl", 300},
        File{".claude/projects/p/3.jsonl", 300.5}, File{".claude/projects/p/agent-4.jsonl", 10},
        File{".claude/projects/p/subagents/5.jsonl", -10}, File{".codex/log/codex-tui.log", 59},
        File{".codex/sessions/2025/rollout-6.jsonl", 61}, File{".grok/sessions/updates.jsonl", 0}})
    touchFile(home.path() / file, after(now, -age));
  const FileActivityProbe probe(home.path(), 12);
  const SessionActivityDetector detector(probe);
  GuardSettings settings;
  settings.disabledAgentIDs = {"grok-build"};
  const auto strong = [](const std::string& name, const std::string& reason) {
    return ActivitySignal{.strength = SignalStrength::strong, .appName = name, .reason = reason};
  };
  EXPECT_EQ(detector.detectPerApp(settings, now, 60),
            (std::vector{strong("Claude Code", "Claude Code session active (0s ago)"),
                         strong("Codex CLI", "Codex CLI session active (59s ago)")}));
  EXPECT_EQ(detector.sessionCountsPerApp(settings, now, 300),
            (std::map<std::string, std::int64_t>{{"Claude Code", 2}, {"Codex CLI", 1}, {"Pi", 0}}));
}

}  // namespace wakelatch
