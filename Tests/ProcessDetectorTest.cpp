#include "WakelatchCore/ProcessDetector.h"

#include <gmock/gmock.h>

#include "Platform/Numbers.h"
#include "Tests/ScriptedRunner.h"

namespace wakelatch {
namespace {

using ::testing::Contains, ::testing::ElementsAre, ::testing::Pair;
using ::testing::UnorderedElementsAre;
using Processes = std::vector<ProcessSnapshot>;

GuardSettings settingsWith(double threshold, std::vector<std::string> targets = {}) {
  GuardSettings settings;
  settings.batteryProfile.cpuThresholdPercent = threshold;
  settings.targetApps = std::move(targets);
  return settings;
}

ActivitySignal activeSignal(const std::string& name, int sessions) {
  return {SignalStrength::strong, name, name + " CPU is above the work threshold", {}, sessions};
}
ActivitySignal present(const std::string& name, int sessions) {
  return {SignalStrength::presence, name, name + " is running", {}, sessions};
}

TEST(Numbers, AreAnOptionalSignAndPlainDecimals) {
  EXPECT_EQ(platform::parseDecimal("-.5"), -.5);
  EXPECT_EQ(platform::parseDecimal("1." + std::string(400, '0')), 1);
  const std::string huge(400, '9');
  for (const char* bad : {"", "-", ".", "1e2", "inf", "8,0", " 1", "1.2.3", "+-1", huge.c_str()})
    EXPECT_FALSE(platform::parseDecimal(bad) || platform::parseInt32(bad)) << bad;
  EXPECT_EQ(platform::parseInt32("-2147483648"), -2147483647 - 1);
  EXPECT_FALSE(platform::parseInt32("2147483648") || platform::parseInt32("1.0"));
}

TEST(ProcessDetector, ReadsProcessLines) {
  EXPECT_EQ(
      ProcessDetector::parsePSOutput(
          "  501     1   0.0 /Applications/Some App.app/Contents/MacOS/Some App\n\n"
          "\t7 1 12.5   two  spaces\r\n"
          "x 1 0.0 /bin/a\n1 y 0.0 /bin/b\n2 1 z /bin/c\n3 1 0.0\n3 1 0.0 \u3000\n4 1\t0.0 a\n"
          "99999999999 1 0.0 d\n-8 +0 0 \xff"),
      (Processes{{501, 1, 0, "/Applications/Some App.app/Contents/MacOS/Some App"},
                 {7, 1, 12.5, "  two  spaces\r"},
                 {-8, 0, 0, "\xff"}}));
  EXPECT_THAT(ProcessDetector::parsePSArgs("  42 /usr/bin/node   /opt/x/cli.js  \nabc def\n42\n\n"
                                           "7 a\n7 \u00a0b\t\n 8\tc\n9 \u3000d\r"),
              UnorderedElementsAre(Pair(42, "/usr/bin/node   /opt/x/cli.js"), Pair(7, "b"),
                                   Pair(9, "d\r")));
}

TEST(ProcessDetector, SumsTheTreeOfEachAgent) {
  const Processes processes = {
      {10, 1, 30, "/bin/claude"},  // with a child whose work counts
      {11, 10, 25, "/bin/zsh"},
      {20, 1, 90, "/Applications/Claude.app/Contents/MacOS/Claude"},
      {30, 1, 55, "/opt/foo-bar"},
      {31, 1, 9, "/opt/pool"},
      {40, 1, 3, "/bin/node", "node /opt/codex"},
      {41, 40, 0, "/bin/sh"},
      {42, 41, 1, "/bin/claude"},  // a sub-agent: a root, no session of its own
      {50, 50, 1, "/bin/pi"},      // its own parent
  };
  const auto detect = [&](double threshold, bool isOnACPower = false) {
    return ProcessDetector::detectPerApp(
        processes, settingsWith(threshold, {"", "opt/FOO", "bar", "The Pool"}),
        PowerSnapshot{.isOnACPower = isOnACPower});
  };
  EXPECT_THAT(detect(55), UnorderedElementsAre(activeSignal("Claude Code", 1), present("Claude", 1),
                                               activeSignal("opt/FOO", 1), present("The Pool", 1),
                                               present("Codex CLI", 1), present("Pi", 0)));
  EXPECT_THAT(detect(57), Contains(present("Claude Code", 1)));
  EXPECT_THAT(detect(0, true), Contains(present("Codex CLI", 1)));
  EXPECT_EQ(ProcessDetector::detect(processes, settingsWith(4), {}),
            activeSignal("Claude Code", 1));
  EXPECT_EQ(ProcessDetector::detect(processes, settingsWith(100), {}), present("Claude Code", 1));
  EXPECT_EQ((ProcessSnapshot{.command = "//"}).displayName(), "/");
}

TEST(ProcessDetector, TellsSessionsFromHelpersAndWorkers) {
  AgentProfile buddy{.id = "buddy", .displayName = "Buddy", .cliProcessNames = {"buddy"}};
  buddy.trustsCPUSignal = true;
  buddy.helperArguments = {"--helper"}, buddy.workerArguments = {"--worker"};
  buddy.turnRecords = {{.globs = {"*"}}}, buddy.toolMarkers = {"sh -c"};
  const auto agents = ProcessDetector::inspect(
      {{2, 1, 0, "/lib/systemd/systemd", "systemd --user"},  // takes over what has lost its parent
       {10, 1, 1, "buddy", "buddy sh -c"},                   // a session is no tool of its own
       {11, 10, 2, "buddy", "buddy --helper"},
       {12, 10, 4, "buddy", "buddy --worker"},
       {13, 1, 100, "buddy", "buddy --helper"},
       {14, 2, 100, "buddy", "buddy --helper"},
       {15, 2, 8, "buddy", "buddy --worker"},
       {16, 15, 16, "sh", "sh -c make"}},
      {}, {}, AgentProfiles({buddy}));
  ASSERT_EQ(agents.size(), 1u);
  EXPECT_EQ(agents[0].signal, activeSignal("Buddy", 1));
  EXPECT_EQ(std::pair(agents[0].cpuPercent, agents[0].ownCPUPercent), std::pair(31.0, 15.0));
  std::string sessions;
  for (const AgentSession& session : agents[0].sessions)
    sessions += std::to_string(session.pid) + (session.isWorker ? " worker" : "") +
                (session.runsTool ? " with a tool" : "") + "; ";
  EXPECT_EQ(sessions, "10; 15 worker with a tool; ");
}

const ShellCommand listProcesses{"/bin/ps", {"-axo", "pid=,ppid=,pcpu=,comm="}};
const ShellCommand listArguments{"/bin/ps", {"-axo", "pid=,args="}};

TEST(ProcessDetector, JoinsTwoListingsAndDoesWithoutTheSecond) {
  ScriptedRunner runner;
  ProcessDetector detector(runner);
  runner.on(listProcesses, "5 1 9.5 /usr/bin/node\n5 1 0 python3\n6 1 0 /bin/pi\n");
  runner.on(listArguments, "7 x\n5 node /opt/codex\n");
  EXPECT_THAT(detector.detectPerApp(settingsWith(9), {}),
              UnorderedElementsAre(activeSignal("Codex CLI", 1), present("Pi", 1)));
  EXPECT_THAT(runner.calls, ElementsAre(listProcesses, listArguments));
  runner.failOn(listArguments, "no");
  EXPECT_EQ(detector.detect(settingsWith(9), {}), present("Pi", 1));
}

}  // namespace
}  // namespace wakelatch
