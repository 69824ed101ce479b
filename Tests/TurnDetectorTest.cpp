#include "WakelatchCore/TurnDetector.h"

#include <gtest/gtest.h>

#include <set>

#include "WakelatchCore/ActivityDetector.h"

namespace wakelatch {
namespace {

const AgentProfile buddy{.id = "buddy",
                         .displayName = "Buddy",
                         .cliProcessNames = {"buddy"},
                         .trustsCPUSignal = true,
                         .sessionActivityGlobs = {"*.log"},
                         .turnRecords = {{.globs = {"*.log"}}},
                         .isConnectedOnlyInTurns = true};
const AgentProfiles onlyBuddy({buddy});

Timestamp at(double seconds) {
  return after(Timestamp(), 1'000'000 + seconds);
}

/// A machine that is asked: what agents have written, and when their processes began.
struct Machine : TurnReading, CommandRunning, FileActivityProbing {
  std::vector<TurnRecord> records(const TurnRecordFormat& /*format*/, Timestamp since) override {
    std::vector<TurnRecord> recent;
    for (const auto& [name, record] : written) {
      if (record.writtenAt >= since) recent.push_back(record);
    }
    return recent;
  }
  std::optional<Timestamp> processStart(std::int32_t pid) override {
    return starts.contains(pid) ? std::optional(at(starts[pid])) : std::nullopt;
  }
  bool isConnected(std::int32_t pid) override { return connected.contains(pid); }
  CommandResult run(const ShellCommand& command) override {
    return {0, command.arguments[1] == "pid=,args=" ? "" : listing, ""};
  }
  std::optional<Timestamp> newestModification(const std::vector<std::string>&) const override {
    return newest;
  }

  void write(const std::string& session, TurnState state, double time,
             std::optional<std::int32_t> pid = {}) {
    written[session] = {session, state, at(time), pid};
  }
  /// What a tick tells: "working", "idle, partly", "-" for nothing.
  std::string look(double time, double cpu = 0) {
    std::string text = listing;
    const auto processes =
        ProcessDetector::inspect(ProcessDetector::parsePSOutput(text), {}, std::nullopt, onlyBuddy);
    std::vector<AgentProcesses> busy = processes;
    for (AgentProcesses& agent : busy) agent.cpuPercent = cpu;
    const auto turns = detector.detect({}, busy, at(time));
    if (turns.empty() || !turns[0].state)
      return turns.empty() || !turns[0].hasGivenUp ? "-" : "given up";
    return std::string(rawValue(*turns[0].state)) +
           (turns[0].tellsOfEverySession ? "" : ", partly");
  }

  std::map<std::string, TurnRecord> written;
  std::map<std::int32_t, double> starts;
  std::set<std::int32_t> connected;
  std::string listing;
  std::optional<Timestamp> newest;
  TurnDetector detector{*this, onlyBuddy};
};

constexpr auto working = TurnState::working, waiting = TurnState::waiting, idle = TurnState::idle;

TEST(TurnDetector, BelievesRecordsOfProcessesThatLive) {
  Machine machine;
  machine.write("old", working, 50);  // left by one that was killed
  EXPECT_EQ(machine.look(99), "-");
  machine.starts = {{7, 100}, {8, 200}};
  machine.listing = "7 1 0 buddy\n";
  EXPECT_EQ(machine.look(110), "-");
  machine.write("a", idle, 111);
  EXPECT_EQ(machine.look(112), "idle");
  machine.write("a", working, 113);
  EXPECT_EQ(machine.look(114), "working");
  machine.listing = "7 1 0 buddy\n8 1 0 buddy\n";
  EXPECT_EQ(machine.look(201), "working, partly");
  machine.write("a", waiting, 202);
  machine.write("b", idle, 203);
  EXPECT_EQ(machine.look(204), "waiting");
  machine.write("b", working, 205);
  EXPECT_EQ(machine.look(206), "working");
  machine.listing = "7 1 0 buddy\n";  // the second one is killed: its record is not the first's
  EXPECT_EQ(machine.look(208), "waiting");
  machine.listing = "";
  EXPECT_EQ(machine.look(210), "-");
  machine.listing = "7 1 0 buddy\n";  // a listing had failed
  EXPECT_EQ(machine.look(212), "waiting");
  machine.starts[9] = 300;  // and the killed session is taken up again
  machine.listing = "9 1 0 buddy\n";
  EXPECT_EQ(machine.look(302), "-");
  machine.write("b", working, 310);
  EXPECT_EQ(machine.look(312), "working");
}

TEST(TurnDetector, TellsTheRecordOfASessionThatWasKilledBesideAnother) {
  Machine machine;
  machine.starts = {{7, 100}, {8, 100}};
  machine.listing = "7 1 0 buddy\n8 1 0 buddy\n";
  machine.write("a", working, 110);
  machine.write("b", idle, 111);
  EXPECT_EQ(machine.look(112), "working");
  machine.listing = "8 1 0 buddy\n";
  EXPECT_EQ(machine.look(114), "working");  // it may be either one's
  machine.write("b", working, 115);
  EXPECT_EQ(machine.look(116), "working");
  machine.write("b", idle, 117);
  EXPECT_EQ(machine.look(118), "idle");
  machine.listing = "9 1 0 buddy\n";  // somebody else's, which cannot have written it
  EXPECT_EQ(machine.look(120), "-");
}

TEST(TurnDetector, TiesARecordToTheProcessItNames) {
  Machine machine;
  machine.starts = {{7, 100}, {8, 100}};
  machine.listing = "7 1 0 buddy\n8 1 0 buddy\n70 7 0 sh\n";
  machine.write("a", working, 110, 70);
  machine.write("b", idle, 110, 8);
  machine.write("other", working, 110, 9999);
  EXPECT_EQ(machine.look(112), "working");
  machine.listing = "8 1 0 buddy\n";
  EXPECT_EQ(machine.look(114), "idle");
}

TEST(TurnDetector, SurvivesAClockThatIsSet) {
  Machine machine;
  machine.starts = {{7, 100}};
  machine.listing = "7 1 0 buddy\n";
  machine.write("a", working, 110);
  EXPECT_EQ(machine.look(112), "working");
  machine.starts[7] += 50000;  // told relative to the clock
  EXPECT_EQ(machine.look(50112), "working");
  EXPECT_EQ(machine.look(10), "working");  // set back: what is written now is older than it was
  machine.write("a", idle, 12);
  EXPECT_EQ(machine.look(14), "idle");
}

TEST(TurnDetector, GivesUpATurnWithoutAnySignOfLife) {
  for (const std::string sign : {"", "load", "write", "process"}) {
    Machine machine;
    machine.starts = {{7, 100}, {71, 50}, {72, 4000}};
    machine.listing = "7 1 0 buddy\n71 7 0 server\n";
    machine.write("a", working, 110);
    int givenUpAt = 0;
    for (int time = 112; time < 112 + 7300; time += 4) {
      if (time == 4000 && sign == "write") machine.write("a", working, time);
      if (time == 4000 && sign == "process") machine.listing += "72 7 0 tool\n";
      if (machine.look(time, time == 4000 && sign == "load" ? 50 : 1) == "given up")
        givenUpAt = time;
    }
    EXPECT_EQ(givenUpAt, sign.empty() ? 112 + 7200 : 0) << sign;
    EXPECT_EQ(machine.look(20000), sign.empty() ? "-" : "working") << sign;  // it was asleep
  }
}

TEST(TurnDetector, KnowsAToolFromAQuestion) {
  Machine machine;
  machine.starts = {{7, 100}, {71, 50}, {72, 120}};
  machine.listing = "7 1 0 buddy\n71 7 0 server\n";
  machine.write("a", TurnState::asksForTool, 110);
  EXPECT_EQ(machine.look(112), "waiting");
  machine.listing += "72 7 0 tool\n";
  EXPECT_EQ(machine.look(121), "working");
  EXPECT_EQ(machine.look(60), "working");  // the clock is set back
  EXPECT_EQ(machine.look(121), "working");
  machine.write("a", TurnState::unclear, 122);
  EXPECT_EQ(machine.look(124), "unclear, partly");
}

TEST(TurnDetector, TakesAConnectionForWorkWhereThereIsNoRecordYet) {
  Machine machine;
  machine.starts = {{7, 100}};
  machine.listing = "7 1 0 buddy\n71 7 0 sh\n";
  machine.connected = {71};  // what it started may talk to anybody
  EXPECT_EQ(machine.look(111), "-");
  machine.connected = {7};
  EXPECT_EQ(machine.look(112), "working");
  machine.write("a", idle, 113);
  EXPECT_EQ(machine.look(114), "idle");
}

TEST(TurnDetector, EndsWhatLoadAndFilesSay) {
  Machine machine;
  machine.starts = {{7, 80}};
  ProcessDetector processes(machine, onlyBuddy);
  AccessibilityDetector texts;
  SessionActivityDetector sessions(machine, onlyBuddy);
  ActivityDetector activity(processes, texts, sessions, &machine.detector, onlyBuddy);
  const auto reason = [&](double time) {
    const ActivitySignal signal = activity.detect({}, {}, at(time));
    return std::to_string(rawValue(signal.strength)) + " " + signal.reason;
  };
  machine.listing = "7 1 0 buddy\n71 7 50 git\n";
  machine.write("a", idle, 81);
  EXPECT_EQ(reason(82), "1 Buddy is running");  // it starts up
  machine.written.clear();
  EXPECT_EQ(reason(84), "3 Buddy CPU is above the work threshold");  // it may write none
  machine.listing = "7 1 50 buddy\n";
  machine.newest = at(111);
  EXPECT_EQ(reason(112), "3 Buddy CPU is above the work threshold");
  machine.write("a", idle, 113);
  EXPECT_EQ(reason(114), "1 Buddy is running");
  machine.write("a", waiting, 115);
  EXPECT_EQ(reason(116), "1 Buddy waits for you");
  machine.write("a", working, 117);
  EXPECT_EQ(reason(118), "3 Buddy is in a turn");
  machine.write("a", idle, 119);
  machine.listing = "7 1 5 buddy\n71 7 20 make\n";  // what it started is at work
  EXPECT_EQ(reason(120), "3 Buddy CPU is above the work threshold");
  machine.write("a", TurnState::unclear, 121);
  machine.listing = "7 1 50 buddy\n";
  machine.newest.reset();
  EXPECT_EQ(reason(121.5), "3 Buddy CPU is above the work threshold");  // it lasts
  machine.listing = "7 1 0 buddy\n";
  EXPECT_EQ(reason(121.6), "1 Buddy is running");
  machine.listing = "7 1 50 buddy\n";
  EXPECT_EQ(reason(121.7), "1 Buddy is running");  // its screen is drawn anew, perhaps
  machine.written.clear();
  machine.listing = "7 1 0 buddy\n";
  machine.newest = at(79);  // by another that has gone
  EXPECT_EQ(reason(122), "1 Buddy is running");
  machine.listing = "";
  machine.newest = at(121);  // written on leaving
  EXPECT_EQ(reason(124), "0 No active agent signal");
  machine.newest = at(140);  // by one that cannot be seen, in a container say
  EXPECT_EQ(reason(142), "3 Buddy session active (2s ago)");
}

}  // namespace
}  // namespace wakelatch
