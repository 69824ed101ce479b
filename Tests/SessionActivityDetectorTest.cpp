#include "WakelatchCore/SessionActivityDetector.h"

#include <gtest/gtest.h>

#include <cmath>

#include "Tests/TemporaryFolder.h"
#include "Tests/TouchFile.h"

namespace wakelatch {
namespace {

constexpr Timestamp now{std::chrono::duration<double>(1'700'000'000)};

TEST(SessionActivityDetector, FreshFilesGiveASignalThatTellsTheirAge) {
  const auto reason = [](double age, double window) {
    const auto signal = SessionActivityDetector::signal("Pi", after(now, -age), now, window);
    return signal ? signal->reason : "none";
  };
  EXPECT_EQ(reason(60, 60), "Pi session active (60s ago)");
  EXPECT_EQ(reason(60.001, 60), "none");
  EXPECT_EQ(reason(12.75, 60), "Pi session active (12s ago)");
  EXPECT_EQ(reason(-5.5, 0), "Pi session active (0s ago)");
  EXPECT_EQ(reason(1e19, HUGE_VAL), "Pi session active (10000000000000000000s ago)");
  EXPECT_EQ(reason(std::nan(""), 60), "none");
  EXPECT_EQ(SessionActivityDetector::signal("Pi", {}, now, 60), std::nullopt);
}

TEST(SessionActivityDetector, JudgesAgentsByTheirFiles) {
  const TemporaryFolder home;
  for (const auto& [file, age] : std::map<std::string, double>{
           {".claude/projects/p/1.jsonl", 200},
           {".claude/projects/p/deeper/2.jsonl", 300},
           {".claude/projects/p/3.jsonl", 300.5},
           {".claude/projects/p/agent-4.jsonl", 10},
           {".claude/projects/p/subagents/5.jsonl", -10},
           {".codex/log/codex-tui.log", 59},
           {".codex/sessions/2025/rollout-6.jsonl", 61},
           {".grok/sessions/updates.jsonl", 0},
       }) {
    touchFile(home.path() / file, after(now, -age));
  }
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

}  // namespace
}  // namespace wakelatch
