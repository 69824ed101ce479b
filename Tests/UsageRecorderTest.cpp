#include "Host/UsageRecorder.h"

#include <gtest/gtest.h>

#include "Platform/Files.h"
#include "Tests/TemporaryFolder.h"

namespace wakelatch::host {
namespace {

const Timestamp start = *platform::parseIso8601("2025-03-01T12:00:00Z");

/// What a tick shows of the agent: active, or there with or without a process, or no signal.
enum class Seen { working, present, textOnly, nothing };

/// A host that ticks, with its own folder and log.
class HostRun {
 public:
  HostRun() { restart(); }

  /// Leaves, if it runs, and starts again.
  void restart() {
    if (recorder_) recorder_->finish(start);
    const auto fileAge = [](const std::string& agentID, Timestamp at) {
      return agentID == "Codex CLI" ? static_cast<std::int64_t>(secondsBetween(start, at)) : -1;
    };
    store_.emplace(file_);
    recorder_.emplace(*store_, *logger_, store_->open(start).metrics, fileAge);
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
    GuardDecision decision;
    decision.status = working ? GuardStatus::keepingAwake : GuardStatus::idleGrace;
    recorder_->record({AppMode::watchAgentUI, settings_, power_, lid, working ? agent : other,
                       signals, decision, true, after(start, seconds)});
  }

  const UsageMetrics& metrics() const { return recorder_->metrics(); }
  std::optional<UsageMetrics> saved() const { return loadUsage(file_); }

  /// The only line of the log, without its date. Ends the run.
  std::string logLine() {
    recorder_.reset();
    logger_.reset();  // waits until all is written
    const std::string log = platform::readFile(folder_.path() / "log");
    return log.substr(log.find("] ") + 2);
  }

 private:
  const TemporaryFolder folder_;
  const std::filesystem::path file_ = folder_.path() / "usage.json";
  std::optional<FileLogger> logger_{folder_.path() / "log"};
  std::optional<UsageStore> store_;
  std::optional<UsageRecorder> recorder_;
  const GuardSettings settings_;
  const PowerSnapshot power_{true, {}, ""};
};

TEST(UsageRecorder, CountsTimeAsTheDecisionSays) {
  using Status = GuardStatus;
  using Trigger = KeepAwakeTrigger;
  const auto trigger = [](Status status, AppMode mode) {
    return keepAwakeTrigger({.status = status}, mode);
  };
  constexpr auto manual = AppMode::manualKeepAwake, watch = AppMode::watchAgentUI;
  EXPECT_EQ(trigger(Status::keepingAwake, manual), Trigger::manual);
  EXPECT_EQ(trigger(Status::keepingAwake, watch), Trigger::activeSignal);
  EXPECT_EQ(trigger(Status::pluggedInUnlimited, watch), Trigger::pluggedInUnlimited);
  EXPECT_EQ(trigger(Status::idleGrace, watch), Trigger::idleGrace);
  EXPECT_EQ(trigger(Status::thermalSafety, manual), Trigger::none);
}

TEST(UsageRecorder, LogsAndSavesAClosedSession) {
  HostRun run;
  for (int at = 0; at <= 105; at += 5) run.tick(at, at <= 15 ? Seen::working : Seen::present);
  EXPECT_EQ(run.saved(), run.metrics());
  EXPECT_EQ(run.logLine(),
            "ts=2025-03-01T12:01:45Z agent=\"Codex CLI\" started=2025-03-01T12:00:05Z worked_s=10 "
            "protected_s=15 kept_awake_s=0 close=idle process_at_close=alive "
            "session_file_age_s=105 lid=closed\n");
}

TEST(UsageRecorder, GapInTheTicksInterruptsTheSessionAsOfTheTickBefore) {
  for (const bool hostLeft : {false, true}) {
    HostRun run;
    for (const double at : {0, 5, 10}) run.tick(at, Seen::working);
    if (hostLeft) run.restart();
    run.tick(600, Seen::nothing, LidState::open);
    EXPECT_EQ(run.saved(), run.metrics());
    const std::string then = hostLeft ? "unknown" : "alive", lid = hostLeft ? "unknown" : "closed";
    EXPECT_EQ(run.logLine(),
              "ts=2025-03-01T12:00:10Z agent=\"Codex CLI\" started=2025-03-01T12:00:05Z worked_s=5 "
              "protected_s=10 kept_awake_s=0 close=interrupted process_at_close=" +
                  then + " session_file_age_s=10 lid=" + lid + "\n");
  }
}

TEST(UsageRecorder, AgentIsGoneWhenItsListedProcessIsMissingTwice) {
  using enum Seen;
  const auto vanishes = [](const std::vector<Seen>& seen) {
    HostRun run;
    double at = 0;
    run.tick(at, nothing);
    run.tick(at += 2, working);  // opens the session
    for (const Seen& each : seen) run.tick(at += 2, each);
    return run.metrics().lastCloseReason == SessionCloseReason::vanished;
  };
  EXPECT_TRUE(vanishes({working, working, nothing, nothing}));
  EXPECT_TRUE(vanishes({working, working, textOnly, textOnly}));
  EXPECT_FALSE(vanishes({working, working, nothing}));
  EXPECT_FALSE(vanishes({working, working, nothing, present, nothing}));
  EXPECT_FALSE(vanishes({textOnly, textOnly, nothing, nothing})) << "was never listed";
  EXPECT_FALSE(vanishes({nothing, nothing, nothing, nothing}));
}

}  // namespace
}  // namespace wakelatch::host
