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
    store_.emplace(folder_.path() / "usage.json");
    recorder_.emplace(*store_, *logger_, store_->open(start).metrics,
                      [](const std::string& agentID, Timestamp at) {
                        EXPECT_EQ(agentID, "Codex CLI");
                        return static_cast<std::int64_t>(secondsBetween(start, at));
                      });
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
  std::optional<UsageMetrics> saved() const { return loadUsage(folder_.path() / "usage.json"); }

  /// The only line of the log, without its date. Ends the run.
  std::string logLine() {
    recorder_.reset();
    logger_.reset();  // waits until all is written
    const std::string log = platform::readFile(folder_.path() / "log");
    return log.substr(log.find("] ") + 2);
  }

 private:
  const TemporaryFolder folder_;
  std::optional<FileLogger> logger_{folder_.path() / "log"};
  std::optional<UsageStore> store_;
  std::optional<UsageRecorder> recorder_;
  const GuardSettings settings_;
  const PowerSnapshot power_{true, {}, ""};
};

TEST(UsageRecorder, CountsTimeAsTheDecisionSays) {
  using Status = GuardStatus;
  using Trigger = KeepAwakeTrigger;
  const std::tuple<Status, AppMode, Trigger> cases[] = {
      {Status::keepingAwake, AppMode::manualKeepAwake, Trigger::manual},
      {Status::keepingAwake, AppMode::watchAgentUI, Trigger::activeSignal},
      {Status::pluggedInUnlimited, AppMode::pluggedInUnlimited, Trigger::pluggedInUnlimited},
      {Status::idleGrace, AppMode::watchAgentUI, Trigger::idleGrace},
      {Status::thermalSafety, AppMode::manualKeepAwake, Trigger::none},
      {Status::watching, AppMode::watchAgentUI, Trigger::none},
  };
  for (const auto& [status, mode, trigger] : cases) {
    GuardDecision decision;
    decision.status = status;
    EXPECT_EQ(keepAwakeTrigger(decision, mode), trigger) << rawValue(status) << rawValue(mode);
  }
}

TEST(UsageRecorder, LogsAndSavesAClosedSession) {
  HostRun run;
  for (const double at : {0, 5, 10, 15}) run.tick(at, Seen::working);
  for (int at = 20; at < 50; at += 5) run.tick(at, Seen::present);
  EXPECT_EQ(run.saved(), std::nullopt) << "not before a minute";
  for (int at = 50; at <= 105; at += 5) run.tick(at, Seen::present);
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
  const std::pair<std::vector<Seen>, bool> cases[] = {
      {{working, working, nothing, nothing}, true},
      {{working, working, textOnly, textOnly}, true},
      {{working, working, nothing}, false},
      {{working, working, nothing, present, nothing}, false},
      {{textOnly, textOnly, nothing, nothing}, false},
      {{nothing, nothing, nothing, nothing}, false},
  };
  for (const auto& [seen, vanishes] : cases) {
    HostRun run;
    double at = 0;
    run.tick(at, nothing);
    run.tick(at += 2, working);  // opens the session
    for (const Seen& each : seen) run.tick(at += 2, each);
    EXPECT_EQ(run.metrics().lastCloseReason == SessionCloseReason::vanished, vanishes)
        << "case " << &seen - &cases[0].first;
  }
}

}  // namespace
}  // namespace wakelatch::host
