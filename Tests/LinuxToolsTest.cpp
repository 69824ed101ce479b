#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <regex>
#include <sstream>

#include "Host/linux/LinuxTools.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/PowerMonitor.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using platform::ChildProcess, platform::ChildOutput;
using testing::AllOf, testing::HasSubstr;
using namespace std::string_literals;

const ShellCommand usage{"/bin/ps", {"-axo", "pid=,ppid=,pcpu=,comm="}};

/// A directory with the files that a text such as "AC/type=Mains, AC/online=1" names.
struct Files : TemporaryDirectory {
  explicit Files(const std::string& text = "") {
    std::istringstream files(text);
    for (std::string file; std::getline(files >> std::ws, file, ',');) {
      const std::size_t equals = file.find('=');
      writeFile(path() / file.substr(0, equals), file.substr(equals + 1) + "\n");
    }
  }
};

std::string stat(const std::string& name, const std::string& state, int cpuTicks, int start) {
  return "7 (" + name + ") " + state + " 3 7 7 0 -1 4194304 0 0 0 0 " + std::to_string(cpuTicks) +
         " 10 90 90 20 0 1 0 " + std::to_string(start) + " 1000 10 1\n";
}

double cpuOf(int pid, const std::string& listing) {
  std::smatch row;
  const std::regex wanted("(^|\n) *" + std::to_string(pid) + " +\\d+ +(\\S+)");
  return std::regex_search(listing, row, wanted) ? std::stod(row[2]) : -1;
}

TEST(LinuxTools, NamesTheProgramThatAPersonWould) {
  using Row = std::array<std::string, 4>;  // name, executable, command line; what it is listed as
  const Row rows[] = {
      {"sleep", "/usr/bin/sleep", "sleep\0001000\0"s, "/usr/bin/sleep"},
      {"codex", "/opt/codex (deleted)", "x\0"s, "/opt/codex"},
      {"codex", "/usr/bin/node", "/usr/bin/node\0/home/u/codex\0go\0"s, "/home/u/codex"},
      {"codex", "/usr/bin/node", "/usr/bin/node\0--flag\0./codex\0"s, "./codex"},
      {"a-very-long-scr", "/bin/sh", "/bin/sh\0/a-very-long-script\0"s, "/a-very-long-script"},
      {"node", "/usr/bin/node", "node\0/home/u/node\0"s, "/usr/bin/node"},
      {"claude", "/usr/bin/node", "claude\0claude\0\0\0"s, "claude"},
      {"gunicorn: maste", "/bin/python3", "gunicorn: master [x]\0"s, "gunicorn: master [x]"},
      {"claude", "/versions/2.0.1", "/usr/bin/claude\0"s, "/usr/bin/claude"},
      {"MainThread", "/usr/bin/node", "node\0server.js\0"s, "/usr/bin/node"},
      {"kworker/0:1", "", "", "kworker/0:1"},
      {"a) S 1 (b", "/x/a\nb", "y\0"s, "/x/a\\012b"}};
  const Files proc("8/comm=gone meanwhile, uptime=1 1");
  std::string expected;
  for (int pid = 101; const auto& [name, executable, commandLine, program] : rows) {
    const std::string id = std::to_string(pid++);
    writeFile(proc.path() / id / "stat", stat(name, "S", 0, 5));
    writeFile(proc.path() / id / "comm", name + "\n");
    writeFile(proc.path() / id / "cmdline", commandLine);
    if (!executable.empty()) fs::create_symlink(executable, proc.path() / id / "exe");
    expected += "  " + id + "     3   0.0 " + program + "\n";
  }
  LinuxTools tools({.proc = proc.path()});
  EXPECT_EQ(tools.run(usage).standardOutput, expected);
  EXPECT_EQ(tools.run({"/bin/ps", {"-p", "103", "-o", "comm="}}).standardOutput, "/home/u/codex\n");
}

TEST(LinuxTools, TellsCPUUseSinceThePreviousListing) {
  const Files proc("7/comm=x");
  LinuxTools tools({.proc = proc.path()});
  const auto listed = [&](const char* state, int cpuTicks, int start) {
    writeFile(proc.path() / "7/stat", stat("x", state, cpuTicks, start));
    return tools.run(usage).standardOutput;
  };
  EXPECT_EQ(listed("R", 5000, 5), "    7     3   0.0 x\n");
  const double tenTicks = cpuOf(7, listed("R", 5010, 5));
  EXPECT_GT(tenTicks, 1);
  EXPECT_LT(tenTicks, 51) << "0.1 s in at least 0.2 s";
  EXPECT_GT(cpuOf(7, listed("R", 4990, 9)), 10 * tenTicks) << "another process since then";
  EXPECT_EQ(listed("Z", 4990, 9), "    7     3   0.0 <defunct>\n");

  const auto begun = std::chrono::steady_clock::now();
  const auto load = [&] {  // of an old process that keeps 20 cores busy
    const std::chrono::duration<double> now = std::chrono::steady_clock::now() - begun;
    return cpuOf(7, listed("R", static_cast<int>(2000 * now.count()), 5));
  };
  load();
  tools.setQuiet(true);
  int looks = 0;
  for (int i = 0; i < 7; ++i) looks += load() > 0;
  EXPECT_TRUE(looks == 1 || looks == 2) << "each fifth time";
  tools.setQuiet(false);
  EXPECT_NEAR(load(), 2000, 500) << "since it was looked at";
}

TEST(LinuxTools, NoticesWhatAProcessBecomes) {
  const Files proc("7/comm=x");
  LinuxTools tools({.proc = proc.path()});
  using Row = std::tuple<std::string, int, std::string, int>;  // name, start, title; seen within
  for (const auto& [name, start, title, listings] :
       {Row{"one", 5, "one", 1}, Row{"two", 5, "two", 1}, Row{"two", 6, "/x/two", 1},
        Row{"two", 6, "/y/two", 5}}) {  // the last at no measurable cost
    writeFile(proc.path() / "7/stat", stat(name, "S", 0, start));
    writeFile(proc.path() / "7/cmdline", title + '\0');
    std::string listing;
    for (int i = 0; i < listings && !listing.ends_with(" " + title + "\n"); ++i)
      listing = tools.run(usage).standardOutput;
    EXPECT_THAT(listing, testing::EndsWith(" " + title + "\n"));
  }
}

TEST(LinuxTools, ListsRealProcesses) {
  const TemporaryDirectory directory;
  const std::string agent = WAKELATCH_CHILDREN_DIR "/agent", claude = directory.path() / "claude";
  writeFile(claude, "#!" + agent + " option\n");
  fs::permissions(claude, fs::perms::owner_all);
  ChildProcess busy(agent, {"busy"}, ChildOutput::inherited);
  ChildProcess script(claude, {"a  b\nc"}, ChildOutput::inherited);
  ChildProcess titled(agent, {"titled", "qwen at work", "space for it"}, ChildOutput::inherited);

  LinuxTools tools;
  tools.run(usage);  // meanwhile the children get under way
  const std::string listing = tools.run(usage).standardOutput;
  EXPECT_GT(cpuOf(busy.id(), listing), 0);
  for (const std::string& program : {agent, claude, "qwen at work"s})
    EXPECT_THAT(listing, HasSubstr(" " + program + "\n"));
  EXPECT_THAT(tools.run({"/bin/ps", {"-axo", "pid=,args="}}).standardOutput,
              AllOf(HasSubstr(" " + agent + " option " + claude + " a  b\\012c\n"),
                    HasSubstr(" qwen at work\n")));
}

TEST(LinuxTools, FollowsYoungProcessesWhileItIsQuiet) {
  const std::string agent = WAKELATCH_CHILDREN_DIR "/agent";
  LinuxTools tools;
  tools.run(usage);
  tools.setQuiet(true);
  ChildProcess shell("/bin/sh", {"-c", "sleep 5 & kill -STOP $$; exec " + agent},
                     ChildOutput::inherited);
  const std::string id = std::to_string(shell.id());
  const auto has = [&](const char* program) {  // the process itself, or its child
    return testing::ContainsRegex("[ \n]" + id + " [^\n]*/" + program + "\n");
  };
  tools.run(usage);  // meanwhile it starts its child
  EXPECT_THAT(tools.run(usage).standardOutput, has("sleep"));
  shell.send(SIGCONT);
  while (tools.run({"/bin/ps", {"-p", id, "-o", "comm="}}).standardOutput != agent + "\n") {
  }
  EXPECT_THAT(tools.run(usage).standardOutput, AllOf(has("agent"), has("sleep")));
  shell.send(SIGKILL);
  shell.reap();
  EXPECT_THAT(tools.run(usage).standardOutput, Not(has(".*"))) << "nor is it a parent any more";
}

TEST(LinuxTools, TellsPowerAndLid) {
  const std::string battery =
      "BAT0/type=Battery, BAT0/capacity=42, AC/type=Mains, AC/online=0, BAT0/status=";
  const std::tuple<std::string, bool, std::optional<int>, std::string> supplies[] = {
      {"AC/type=Mains, AC/online=0", true, {}, "'"},
      {"mouse/type=Battery, mouse/scope=Device, mouse/capacity=3", true, {}, "'"},
      {"B/type=Battery, B/present=0, B/capacity=0", true, {}, "'"},
      {battery + "Discharging", false, 42, "42%; discharging"},
      {battery + "Full, USB/type=USB, USB/online=1", true, 42, "42%; charged"},
      {"B/type=Battery, B/status=Charging", true, {}, "\tcharging"},
      {"B/type=Battery, B/status=Discharging", false, {}, "\tdischarging"},
      {battery + "Unknown, BAT0/energy_full=20, B/type=Battery, B/capacity=82, B/energy_full=60",
       false, 72, "B+BAT0 (id=0)\t72%; discharging"}};
  for (const auto& [files, onACPower, percent, state] : supplies) {
    const Files directory(files);
    LinuxTools tools({.powerSupply = directory.path()});
    const PowerSnapshot power = PowerMonitor(tools).snapshot();
    EXPECT_EQ(power.isOnACPower, onACPower) << files;
    EXPECT_EQ(power.batteryPercent, percent) << files;
    EXPECT_THAT(power.rawDescription, HasSubstr(state));
  }
  using Lid = std::pair<std::string, LidState>;
  for (const auto& [files, state] :
       {Lid{"", LidState::unknown}, Lid{"LID/state=state:      open", LidState::open},
        Lid{"LID/state=state:      closed, LID2/state=state:      open", LidState::closed}}) {
    const Files directory(files);
    LinuxTools tools({.lid = directory.path()});
    EXPECT_EQ(LidStateDetector(tools).lidState(), state) << files;
  }
}

TEST(LinuxTools, TellsTemperature) {
  std::string files = "thermal_zone0/temp=20000";
  using Trip = std::pair<std::string, std::string>;
  for (int i = 0; const auto& [type, degrees] :
                  {Trip{"critical", "100000"}, Trip{"active", "50000"}, Trip{"hot", "90000"},
                   Trip{"passive", "70000"}, Trip{"hot", "0"}, Trip{"critical", "-274000"}}) {
    const std::string trip = ", thermal_zone1/trip_point_" + std::to_string(i++);
    files += trip + "_type=" + type + trip + "_temp=" + degrees;
  }
  const Files directory(files);
  using enum ThermalState;
  using Row = std::pair<const char*, ThermalState>;
  for (const auto& [temperature, state] : {Row{"69999", nominal}, Row{"70000", fair},
                                           Row{"99999", serious}, Row{"100000", critical}}) {
    writeFile(directory.path() / "thermal_zone1/temp", temperature);
    EXPECT_EQ(thermalState(directory.path()), state) << temperature;
  }
}

TEST(LinuxTools, AnswersNothingElse) {
  LinuxTools tools;
  EXPECT_THROW(tools.run({"/bin/ps", {"-p", "999999999", "-o", "comm="}}), CommandRunnerError);
  EXPECT_THROW(tools.run({"/usr/bin/osascript", {"-e", "anything"}}), std::runtime_error);
  EXPECT_THROW(tools.run({"/usr/bin/pmset", {"-g", "therm"}}), std::runtime_error);
}

}  // namespace
}  // namespace wakelatch::host
