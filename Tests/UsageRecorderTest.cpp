#include "Host/UsageRecorder.h"

#include <gmock/gmock.h>

#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

using testing::EndsWith;

const Timestamp installed = *platform::parseIso8601("2025-03-01T12:00:00Z");

/// What a tick shows of the agent: active, or there with or without a process, or no signal.
enum class Seen { working, present, textOnly, nothing };

/// A host that ticks, with its own directory and log.
struct HostRun {
  const TemporaryDirectory directory;
  std::optional<FileLogger> logger{directory.path() / "log"};
  std::optional<UsageRecorder> recorder;
  bool isDue = false;  ///< the last tick is to be saved

  HostRun() { restart(); }

  /// Leaves, if it runs, and starts again.
  void restart() {
    const UsageMetrics saved = recorder ? recorder->metrics() : UsageMetrics(installed);
    recorder.emplace(*logger, saved);
  }

  void tick(double seconds, Seen seen, LidState lid = LidState::closed) {
    const bool working = seen == Seen::working;
    const ActivitySignal other{SignalStrength::presence, "Cursor", "", {}, 1, true};
    ActivitySignal agent = other;
    agent.appName = "Codex CLI";
    agent.processPresent = seen != Seen::textOnly;
    if (working) agent.strength = SignalStrength::strong;
    std::vector<ActivitySignal> signals{other};
    if (seen != Seen::nothing) signals.push_back(agent);
    const auto status = working ? GuardStatus::keepingAwake : GuardStatus::idleGrace;
    isDue = recorder->record({.mode = AppMode::watchAgentUI,
                              .settings = {},
                              .power = {true, {}, ""},
                              .lidState = lid,
                              .strongest = working ? agent : other,
                              .signals = signals,
                              .agents = {{"Codex CLI", {"codex-cli", installed}}},
                              .decision = {.status = status},
                              .preventsSleep = true,
                              .now = after(installed, seconds)});
  }
};

TEST(UsageRecorder, SavesAClosedSessionAndLogsHowThingsStoodAtItsEnd) {
  const struct {
    bool idles, restarts;  ///< until grace is over, else a tick comes too late
    const char* end;
  } rows[] = {
      {true, false, "idle process_at_close=alive session_file_age_s=100 lid=closed\n"},
      {false, false, "interrupted process_at_close=alive session_file_age_s=10 lid=closed\n"},
      {false, true, "interrupted process_at_close=unknown session_file_age_s=10 lid=unknown\n"}};
  for (const auto& row : rows) {
    HostRun run;
    for (const double at : {0, 5, 10}) run.tick(at, Seen::working);
    for (int at = 15; row.idles && at <= 100; at += 5) run.tick(at, Seen::present);
    if (row.restarts) run.restart();
    if (!row.idles) run.tick(600, Seen::nothing, LidState::open);
    EXPECT_TRUE(run.isDue);
    run.recorder.reset();
    run.logger.reset();  // waits until all is written
    EXPECT_THAT(platform::readFile(run.directory.path() / "log"),
                EndsWith(std::string(" agent=\"Codex CLI\" started=2025-03-01T12:00:05Z worked_s=5 "
                                     "protected_s=10 kept_awake_s=0 close=") +
                         row.end));
  }
}

TEST(UsageRecorder, AsksToBeSavedOnceAMinute) {
  HostRun run;
  std::vector<double> saved;
  for (const double at : {0, 59, 60, 119, 120, -7200, -7150}) {
    run.tick(at, Seen::nothing);
    if (run.isDue) saved.push_back(at);
  }
  EXPECT_THAT(saved, testing::ElementsAre(60, 120, -7200)) << "a clock set back must not stop it";
}

TEST(UsageRecorder, AgentIsGoneWhenItsListedProcessIsMissingTwice) {
  using enum Seen;
  const auto vanishes = [](const std::vector<Seen>& seen) {
    HostRun run;
    double at = 0;
    run.tick(at, nothing);
    run.tick(at += 2, working);  // opens the session
    for (const Seen& each : seen) run.tick(at += 2, each);
    return run.recorder->metrics().lastCloseReason == SessionCloseReason::vanished;
  };
  EXPECT_TRUE(vanishes({working, working, nothing, nothing}));
  EXPECT_TRUE(vanishes({working, working, textOnly, textOnly}));
  EXPECT_FALSE(vanishes({working, working, nothing}));
  EXPECT_FALSE(vanishes({working, working, nothing, present, nothing}));
  EXPECT_FALSE(vanishes({textOnly, textOnly, nothing, nothing})) << "was never listed";
}

}  // namespace
}  // namespace wakelatch::host
