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
                         .oneShotArguments = {"-p"},
                         .workerArguments = {"--worker"},
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
    return {0, command.arguments[1] == "pid=,args=" ? arguments : listing, ""};
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
    auto processes = ProcessDetector::inspect(ProcessDetector::parsePSOutput(listing), {},
                                              std::nullopt, onlyBuddy);
    for (AgentProcesses& agent : processes) agent.cpuPercent = cpu;
    const auto turns = detector.detect({}, processes, at(time));
    if (turns.empty() || !turns[0].state)
      return turns.empty() || !turns[0].hasGivenUp ? "-" : "given up";
    return std::string(rawValue(*turns[0].state)) +
           (turns[0].tellsOfEverySession ? "" : ", partly");
  }

  std::map<std::string, TurnRecord> written;
  std::map<std::int32_t, double> starts;
  std::set<std::int32_t> connected;
  std::string listing, arguments;
  std::optional<Timestamp> newest;
  TurnDetector detector{*this, onlyBuddy};
};

constexpr auto working = TurnState::working, waiting = TurnState::waiting, idle = TurnState::idle;

/// A tick of a machine: what runs, which records have been written since the tick before, and what
/// look() tells of it.
struct Step {
  double time;
  std::string listing;
  std::vector<TurnRecord> written;
  std::string told;
};
void follow(Machine& machine, const std::vector<Step>& steps) {
  for (const Step& step : steps) {
    machine.listing = step.listing;
    for (const TurnRecord& record : step.written) machine.written[record.session] = record;
    EXPECT_EQ(machine.look(step.time), step.told) << step.time;
  }
}
const std::string first = "7 1 0 buddy\n", second = "8 1 0 buddy\n", both = first + second;

TEST(TurnDetector, BelievesRecordsOfProcessesThatLive) {
  Machine machine;
  machine.starts = {{7, 100}, {8, 200}, {9, 300}};
  follow(machine,
         {{99, "", {{"old", working, at(50)}}, "-"},  // left by one that was killed
          {110, first, {}, "-"},
          {112, first, {{"a", idle, at(111)}}, "idle"},
          {114, first, {{"a", working, at(113)}}, "working"},
          {201, both, {}, "working, partly"},
          {204, both, {{"a", waiting, at(202)}, {"b", idle, at(203)}}, "waiting"},
          {206, both, {{"b", working, at(205)}}, "working"},
          {208, first, {}, "waiting"},  // the second one is killed, and its record with it
          {210, "", {}, "-"},
          {212, first, {}, "waiting"},  // that listing had failed
          {302, "9 1 0 buddy\n", {}, "-"},
          {312, "9 1 0 buddy\n", {{"b", working, at(310)}}, "working"}});  // taken up again
}

TEST(TurnDetector, TellsTheRecordOfASessionThatWasKilledBesideAnother) {
  Machine machine;
  machine.starts = {{7, 100}, {8, 100}};
  follow(machine, {{110, both, {{"a", working, at(110)}}, "working, partly"},
                   {112, both, {{"b", idle, at(111)}}, "working"},
                   {114, second, {}, "working"},  // it may be either one's
                   {116, second, {{"b", working, at(115)}}, "working"},
                   {118, second, {{"b", idle, at(117)}}, "idle"},
                   // The ended session is taken up again by the other's process.
                   {119, second, {{"a", working, at(118.5)}}, "working"},
                   // Somebody else's, which cannot have written it.
                   {120, "9 1 0 buddy\n", {}, "-"}});
}

TEST(TurnDetector, TiesARecordToTheProcessItNames) {
  Machine machine;
  machine.starts = {{7, 100}, {8, 111.5}};  // as systems tell it: in steps, so later than it was
  const std::vector<TurnRecord> records{
      {"a", working, at(110), 70}, {"b", idle, at(110), 8}, {"other", working, at(110), 9999}};
  follow(machine, {{112, both + "70 7 0 sh\n", records, "working"}, {114, second, {}, "idle"}});
}

TEST(TurnDetector, SurvivesAClockThatIsSet) {
  Machine machine;
  machine.starts = {{7, 100}};
  follow(machine, {{112, first, {{"a", working, at(110)}}, "working"}});
  machine.starts[7] += 50000;  // told relative to the clock
  follow(machine, {{50112, first, {}, "working"},
                   // Set back: what is written now is older than it was.
                   {10, first, {}, "working"},
                   {14, first, {{"a", idle, at(12)}}, "idle"},
                   {18, first, {{"b", working, at(17)}}, "working"}});
}

TEST(TurnDetector, GivesUpATurnWithoutAnySignOfLife) {
  for (const std::string sign : {"", "load", "write", "process"}) {
    Machine machine;
    machine.starts = {{7, 100}, {71, 50}, {72, 4000}};
    machine.listing = "7 1 0 buddy\n71 7 0 server\n";
    machine.write("a", working, 108);
    int givenUpAt = 0;
    for (int time = 112; time < 112 + 7300; time += 4) {
      if (time == 4000 && sign == "write") machine.write("a", working, time);
      if (time == 4000 && sign == "process") machine.listing += "72 7 0 tool\n";
      if (machine.look(time, time == 4000 && sign == "load" ? 8 : 1) == "given up")
        givenUpAt = time;
    }
    EXPECT_EQ(givenUpAt, sign.empty() ? 108 + 7200 : 0) << sign;
    EXPECT_EQ(machine.look(20000), sign.empty() ? "-" : "working") << sign;  // it was asleep
  }
}

TEST(TurnDetector, KnowsAToolFromAQuestion) {
  Machine machine;
  machine.starts = {{7, 100}, {71, 50}, {72, 120}, {73, 140}};
  const std::string server = first + "71 7 0 server\n", tool = server + "72 7 0 tool\n";
  follow(machine,
         {{112, server, {{"a", TurnState::asksForTool, at(101)}}, "waiting"},
          {121, tool, {}, "working"},
          {60, tool, {}, "working"},  // the clock is set back
          {121, tool, {}, "working"},
          {124, tool, {{"a", TurnState::unclear, at(122)}}, "unclear, partly"},
          // Seen first when its tool ran already.
          {200, first + "73 7 0 tool\n", {{"b", TurnState::asksForTool, at(199)}}, "working"}});
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
  // As many records as sessions: each has one.
  machine.starts[8] = 100, machine.connected = {8};
  follow(machine, {{116, both, {{"b", idle, at(115)}}, "idle"}});
}

TEST(TurnDetector, EndsWhatLoadAndFilesSay) {
  const auto atWork = "3 Buddy CPU is above the work threshold", runs = "1 Buddy is running",
             answers = "3 Buddy works on a single prompt";
  const auto busy = "7 1 50 buddy\n", quiet = "7 1 0 buddy\n", onePrompt = "9 1 0 buddy\n";
  const auto unclear = TurnState::unclear;
  using Record = std::optional<std::pair<TurnState, double>>;
  const struct {
    double time;
    const char* listing;
    Record record;                 ///< and when it was written
    std::optional<double> newest;  ///< file of a session
    const char* signal;
  } steps[] = {
      {82, "7 1 0 buddy\n71 7 50 git\n", {{idle, 81}}, {}, runs},  // it starts up
      {84, "7 1 0 buddy\n71 7 50 git\n", {}, {}, atWork},          // it may write no record
      {112, busy, {}, 111, atWork},
      {114, busy, {{idle, 113}}, 111, runs},
      {116, busy, {{waiting, 115}}, 111, "1 Buddy waits for you"},
      {118, busy, {{working, 117}}, 111, "3 Buddy is in a turn"},
      // What it started is at work.
      {120, "7 1 0 buddy\n71 7 8 make\n", {{idle, 119}}, 111, atWork},
      // Where the record leaves it open, load that lasts is work; other load may draw its screen.
      {121.5, busy, {{unclear, 121}}, {}, atWork},
      {121.6, quiet, {{unclear, 121}}, {}, runs},
      {121.7, busy, {{unclear, 121}}, {}, runs},
      // A file of a session that ended before; one written on leaving; one of a session that cannot
      // be seen, in a container say.
      {122, quiet, {}, 79, runs},
      {134, "", {}, 132, "0 No active agent signal"},
      {142, "", {}, 140, "3 Buddy session active (2s ago)"},
      // A second session starts up; it has no record, so that of the first does not speak for it.
      {200, "7 1 0 buddy\n8 1 50 buddy\n", {{idle, 150}}, {}, runs},
      {225, "7 1 50 buddy\n8 1 0 buddy\n", {{idle, 150}}, {}, atWork},
      {226, "7 1 0 buddy\n8 1 0 buddy\n", {{idle, 150}}, 180, "3 Buddy session active (46s ago)"},
      // A worker writes none either, but what it does belongs to the turn of the session it had.
      {227, "7 1 50 buddy\n10 1 0 buddy\n", {{idle, 150}}, {}, runs},
      // A one-shot run ends soon after its turn, or it is none.
      {285, onePrompt, {{working, 280}}, {}, "3 Buddy is in a turn"},
      {300, onePrompt, {{idle, 290}}, {}, answers},
      {321, onePrompt, {{idle, 290}}, {}, runs},
      {322, "9 1 0 buddy\n71 9 8 make\n91 9 0 buddy\n", {{idle, 290}}, {}, answers},
  };
  Machine machine;
  machine.starts = {{7, 80}, {8, 190}, {9, 250}, {10, 80}};
  machine.arguments = "9 buddy -p x\n10 buddy --worker\n";
  ProcessDetector processes(machine, onlyBuddy);
  AccessibilityDetector texts;
  SessionActivityDetector sessions(machine, onlyBuddy);
  ActivityDetector activity(processes, texts, sessions, &machine.detector, onlyBuddy);
  for (const auto& step : steps) {
    machine.listing = step.listing;
    machine.newest = step.newest ? std::optional(at(*step.newest)) : std::nullopt;
    machine.written.clear();
    if (step.record) machine.write("a", step.record->first, step.record->second);
    const ActivitySignal signal = activity.detect({}, {}, at(step.time));
    EXPECT_EQ(std::to_string(rawValue(signal.strength)) + " " + signal.reason, step.signal)
        << step.time;
  }
}

}  // namespace
}  // namespace wakelatch
