#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <map>
#include <thread>

#include "Host/linux/LinuxTools.h"
#include "Platform/ChildProcess.h"
#include "TemporaryFolder.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using platform::ChildOutput;
using platform::ChildProcess;
using testing::HasSubstr;
using namespace std::string_literals;

const ShellCommand usage{"/bin/ps", {"-axo", "pid=,ppid=,pcpu=,comm="}};
const ShellCommand arguments{"/bin/ps", {"-axo", "pid=,args="}};

struct Row {
  int parent = -1;
  double cpu = -1;
  std::string command;
};

Row rowOf(int pid, const std::string& listing) {
  std::istringstream lines(listing);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    int id = 0;
    Row row;
    if (fields >> id >> row.parent >> row.cpu && id == pid && fields.get() == ' ' &&
        std::getline(fields, row.command)) {
      return row;
    }
  }
  return {};
}

using Files = std::map<std::string, std::string>;

/// Files by their paths in `folder`.
void fill(const fs::path& folder, const Files& files) {
  for (const auto& [name, content] : files) {
    fs::create_directories((folder / name).parent_path());
    std::ofstream(folder / name) << content;
  }
}

std::string statLine(const std::string& name, const std::string& state, int cpuTicks, int start) {
  return "7 (" + name + ") " + state + " 3 7 7 0 -1 4194304 0 0 0 0 " + std::to_string(cpuTicks) +
         " 10 90 90 20 0 1 0 " + std::to_string(start) + " 1000 10 1\n";
}

TEST(LinuxTools, NamesTheProgramThatAPersonWould) {
  const struct {
    std::string name, executable, commandLine, program;
  } rows[] = {
      {"sleep", "/usr/bin/sleep", "sleep\0001000\0"s, "/usr/bin/sleep"},
      {"sh", "/usr/bin/sh", "-sh\0sh\0"s, "/usr/bin/sh"},
      {"codex", "/opt/codex (deleted)", "x\0"s, "/opt/codex"},
      {"codex", "/usr/bin/node", "/usr/bin/node\0/home/u/codex\0go\0"s, "/home/u/codex"},
      {"codex", "/usr/bin/node", "/usr/bin/node\0--flag\0./codex\0"s, "./codex"},
      {"a-very-long-scr", "/bin/bash", "/bin/bash\0/x/a-very-long-script.sh\0"s,
       "/x/a-very-long-script.sh"},
      {"node", "/usr/bin/node", "node\0/home/u/codex\0"s, "/usr/bin/node"},
      {"claude", "/usr/bin/node", "claude\0\0\0\0"s, "claude"},
      {"claude", "/usr/bin/node", "claude\0--model\0claude\0"s, "claude"},
      {"gunicorn: maste", "/usr/bin/python3.11", "gunicorn: master [x]\0"s, "gunicorn: master [x]"},
      {"claude", "/home/u/versions/2.0.1", "/usr/bin/claude\0"s, "/usr/bin/claude"},
      {"MainThread", "/usr/bin/node", "node\0server.js\0"s, "/usr/bin/node"},
      {"kworker/0:1", "", "", "kworker/0:1"},
      {"sshd", "", "/usr/sbin/sshd\0-D\0"s, "/usr/sbin/sshd"},
      {"a) S 1 (b", "/x/a\nb", "y\0"s, "/x/a\\012b"},
  };
  const TemporaryFolder proc;
  fill(proc.path(), {{"8/comm", "gone meanwhile\n"}, {"uptime", "1 1\n"}});
  std::string expected;
  for (int pid = 101; const auto& row : rows) {
    const std::string id = std::to_string(pid++);
    fill(proc.path() / id, {{"stat", statLine(row.name, "S", 0, 5)},
                            {"comm", row.name + "\n"},
                            {"cmdline", row.commandLine}});
    if (!row.executable.empty()) fs::create_symlink(row.executable, proc.path() / id / "exe");
    expected += "  " + id + "     3   0.0 " + row.program + "\n";
  }
  LinuxTools tools({.proc = proc.path()});
  EXPECT_EQ(tools.run(usage).standardOutput, expected);
  EXPECT_EQ(tools.run({"/bin/ps", {"-p", "104", "-o", "comm="}}).standardOutput, "/home/u/codex\n");
}

TEST(LinuxTools, TellsCPUUseSinceThePreviousListing) {
  const TemporaryFolder proc;
  const auto cpuAfter = [&](const Files& files, LinuxTools& tools) {
    fill(proc.path(), files);
    return rowOf(7, tools.run(usage).standardOutput);
  };
  LinuxTools tools({.proc = proc.path()});
  EXPECT_EQ(cpuAfter({{"7/stat", statLine("x", "R", 5000, 5)}, {"7/comm", "x\n"}}, tools).cpu, 0);
  const double tenTicks = cpuAfter({{"7/stat", statLine("x", "R", 5010, 5)}}, tools).cpu;
  EXPECT_GT(tenTicks, 1) << "0.1 s in a little more than 0.2 s";
  EXPECT_LT(tenTicks, 51);
  EXPECT_GT(cpuAfter({{"7/stat", statLine("x", "R", 4990, 9)}}, tools).cpu, 10 * tenTicks)
      << "another process by now, all of it used since the previous listing";
  const Row ended = cpuAfter({{"7/stat", statLine("x", "Z", 4990, 9)}}, tools);
  EXPECT_EQ(ended.cpu, 0);
  EXPECT_EQ(ended.command, "<defunct>");
}

TEST(LinuxTools, ListsRealProcesses) {
  const TemporaryFolder folder;
  const std::string agent = WAKELATCH_CHILDREN_DIR "/agent";
  const std::string codex = folder.path() / "codex", claude = folder.path() / "claude",
                    gemini = folder.path() / "gemini";
  fs::copy(agent, codex);
  fs::create_symlink(agent, gemini);
  std::ofstream(claude) << "#!" << agent << " option\n";
  fs::permissions(claude, fs::perms::owner_all);
  ChildProcess busy(codex, {"busy"}, ChildOutput::inherited);
  ChildProcess script(claude, {"a  b\nc"}, ChildOutput::inherited);
  ChildProcess titled(agent, {"titled", "qwen at work", "room for the title"},
                      ChildOutput::inherited);
  ChildProcess link(gemini, {}, ChildOutput::inherited);

  LinuxTools tools;
  tools.run(usage);  // the children get under way
  const std::string listing = tools.run(usage).standardOutput;
  EXPECT_EQ(rowOf(busy.id(), listing).command, codex);
  EXPECT_EQ(rowOf(busy.id(), listing).parent, getpid());
  EXPECT_GT(rowOf(busy.id(), listing).cpu, 5);
  EXPECT_EQ(rowOf(script.id(), listing).command, claude);
  EXPECT_LT(rowOf(script.id(), listing).cpu, 10);
  EXPECT_EQ(rowOf(titled.id(), listing).command, "qwen at work");
  EXPECT_EQ(rowOf(link.id(), listing).command, gemini);
  const std::string all = tools.run(arguments).standardOutput;
  EXPECT_THAT(all, HasSubstr(" " + codex + " busy\n"));
  EXPECT_THAT(all, HasSubstr(" " + agent + " option " + claude + " a  b\\012c\n"));
  EXPECT_THAT(all, HasSubstr(" qwen at work\n"));

  busy.send(SIGSTOP);
  tools.run(usage);
  EXPECT_EQ(rowOf(busy.id(), tools.run(usage).standardOutput).cpu, 0) << "not over its life";
  std::thread other([&] { tools.run(usage); });  // two listings at once
  EXPECT_EQ(rowOf(busy.id(), tools.run(usage).standardOutput).command, codex);
  other.join();
}

TEST(LinuxTools, TellsPower) {
  const struct {
    Files files;
    std::string report;
  } rows[] = {
      {{}, "Now drawing from 'AC Power'\n"},
      {{{"AC/type", "Mains\n"}, {"AC/online", "0\n"}}, "Now drawing from 'AC Power'\n"},
      {{{"mouse/type", "Battery\n"},
        {"mouse/scope", "Device\n"},
        {"mouse/capacity", "5\n"},
        {"BAT1/type", "Battery\n"},
        {"BAT1/present", "0\n"}},
       "Now drawing from 'AC Power'\n"},
      {{{"AC/type", "Mains\n"},
        {"AC/online", "0\n"},
        {"BAT0/type", "Battery\n"},
        {"BAT0/status", "Discharging\n"},
        {"BAT0/capacity", "42\n"}},
       "Now drawing from 'Battery Power'\n -BAT0 (id=0)\t42%; discharging; (no estimate) present: "
       "true\n"},
      {{{"AC/type", "Mains\n"},
        {"AC/online", "0\n"},
        {"USBC/type", "USB\n"},
        {"USBC/online", "1\n"},
        {"BAT0/type", "Battery\n"},
        {"BAT0/status", "Full\n"},
        {"BAT0/capacity", "100\n"}},
       "Now drawing from 'AC Power'\n -BAT0 (id=0)\t100%; charged; (no estimate) present: true\n"},
      {{{"BAT0/type", "Battery\n"}, {"BAT0/status", "Charging\n"}},
       "Now drawing from 'AC Power'\n -BAT0 (id=0)\tcharging; (no estimate) present: true\n"},
      {{{"BAT0/type", "Battery\n"},
        {"BAT0/status", "Not charging\n"},
        {"BAT0/capacity", "0\n"},
        {"BAT0/energy_full", "20000000\n"},
        {"BAT1/type", "Battery\n"},
        {"BAT1/status", "Discharging\n"},
        {"BAT1/capacity", "80\n"},
        {"BAT1/energy_full", "60000000\n"}},
       "Now drawing from 'Battery Power'\n -BAT0+BAT1 (id=0)\t60%; discharging; (no estimate) "
       "present: true\n"},
  };
  for (const auto& row : rows) {
    const TemporaryFolder folder;
    fill(folder.path(), row.files);
    LinuxTools tools({.powerSupply = folder.path()});
    EXPECT_EQ(tools.run({"/usr/bin/pmset", {"-g", "batt"}}).standardOutput, row.report);
  }
}

TEST(LinuxTools, TellsLidAndTemperature) {
  const std::pair<Files, std::string> lids[] = {
      {{}, ""},
      {{{"LID/state", "state:      open\n"}}, "      \"AppleClamshellState\" = No\n"},
      {{{"LID/state", "state:      closed\n"}, {"LID2/state", "state:      open\n"}},
       "      \"AppleClamshellState\" = Yes\n"},
  };
  for (const auto& [files, report] : lids) {
    const TemporaryFolder folder;
    fill(folder.path(), files);
    LinuxTools tools({.lid = folder.path()});
    EXPECT_EQ(tools.run({"/usr/sbin/ioreg", {"-r", "-k", "AppleClamshellState", "-d", "1"}})
                  .standardOutput,
              report);
  }
  const std::pair<int, ThermalState> temperatures[] = {
      {49999, ThermalState::nominal}, {50000, ThermalState::nominal},
      {70000, ThermalState::fair},    {90000, ThermalState::serious},
      {99999, ThermalState::serious}, {100000, ThermalState::critical}};
  for (const auto& [temperature, state] : temperatures) {
    const TemporaryFolder folder;
    Files files{{"thermal_zone0/temp", "20000\n"},
                {"thermal_zone1/temp", std::to_string(temperature)}};
    const char* trips[][2] = {{"critical", "100000"}, {"active", "50000"}, {"hot", "90000"},
                              {"passive", "70000"},   {"hot", "0"},        {"critical", "-274000"}};
    for (std::size_t i = 0; i < std::size(trips); ++i) {
      const std::string prefix = "thermal_zone1/trip_point_" + std::to_string(i);
      files[prefix + "_type"] = trips[i][0];
      files[prefix + "_temp"] = trips[i][1];
    }
    fill(folder.path(), files);
    EXPECT_EQ(thermalState(folder.path()), state) << temperature;
  }
}

TEST(LinuxTools, AnswersNothingElse) {
  LinuxTools tools;
  EXPECT_EQ(tools.run({"/usr/bin/pmset", {"-a", "disablesleep", "0"}}), CommandResult{});
  EXPECT_THAT(tools.run({"/usr/bin/pmset", {"-g"}}).standardOutput,
              HasSubstr(" SleepDisabled\t\t0\n"));
  EXPECT_THROW(tools.run({"/bin/ps", {"-p", "999999999", "-o", "comm="}}), CommandRunnerError);
  try {
    tools.run({"/usr/bin/osascript", {"-e", "anything"}});
    FAIL();
  } catch (const CommandRunnerError& error) {
    EXPECT_THAT(error.result().standardError, HasSubstr("exists on macOS only"));
  }
  try {
    tools.run({"/usr/bin/pmset", {"-g", "therm"}});
    FAIL();
  } catch (const std::runtime_error& error) {
    EXPECT_THAT(error.what(), HasSubstr("/usr/bin/pmset -g therm"));
  }
}

}  // namespace
}  // namespace wakelatch::host
