// A watch whose reader, terminal, prompts and tools do what they should not: it decides at its
// interval all the same, and what it decides is done.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <pty.h>
#include <sys/wait.h>

#include <iterator>
#include <limits>
#include <sstream>

#include "Host/Folder.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryFolder.h"

#include <nlohmann/json.hpp>

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testing::ContainsRegex, testing::HasSubstr;

constexpr double soon = 3 * 0.2 + 2;  // seconds: three intervals, and a busy machine's delays
constexpr const char* lidClosed = R"({"keepAwakeWithLidClosed":true,"idleGracePeriodSeconds":0})";

// Files in the home folder tell the scripts what to do, which note in "calls" what they were asked
// for, and their ids.
constexpr const char* pmset = R"sh(
echo "$* $$" >> ~/calls
case "$*" in
"-g batt") [ -e ~/flat ] && charge=5 || charge=80
  echo "Now drawing from 'Battery Power' $charge%" ;;
-g) [ -e ~/on ] && on=1 || on=0
  echo " SleepDisabled $on" ;;
"-a disablesleep 0") [ -e ~/root ] && rm -f ~/on ;;
esac)sh";

constexpr const char* osascript = R"sh(
case "$2" in *"disablesleep 1"*) prompt=engage ;; *) prompt=restore ;; esac
echo "$prompt $$" >> ~/calls
[ ! -e ~/$prompt ] || . ~/$prompt
[ $prompt = engage ] && touch ~/on || rm -f ~/on)sh";

constexpr const char* ps = R"sh(
[ ! -e ~/work ] || case "$*" in
*pcpu=*) echo "4242 1 99 codex" ;;
*args=) echo "4242 codex" ;;
esac)sh";

/// What a prompt does that stays open until it is ended, and the last thing it does then.
std::string openPrompt(const std::string& last) {
  return "trap '" + last + "; exit 1' TERM INT; while :; do sleep 0.05; done";
}

/// The letter of a process's state; 0 when there is none of that id, not even a zombie.
char stateOf(std::int32_t pid) {
  const fs::path file = "/proc/" + std::to_string(pid) + "/stat";
  std::string stat;
  std::getline(std::ifstream(file), stat);
  const std::size_t name = stat.rfind(") ");
  return name == stat.npos ? '\0' : stat[name + 2];
}

/// How a child ended, and -1 as long as it has not; it is left to be reaped.
int statusOf(std::int32_t child) {
  siginfo_t info{};
  ::waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT);
  return info.si_code == CLD_EXITED ? info.si_status : -1;
}

double secondsUntil(const std::function<bool()>& condition) {
  const auto start = std::chrono::steady_clock::now();
  if (!eventually(condition)) return std::numeric_limits<double>::infinity();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void pause(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

/// Fills the pipe that a program prints to.
void stuff(std::int32_t program) {
  const std::string output = "/proc/" + std::to_string(program) + "/fd/1";
  const int pipe = ::open(output.c_str(), O_WRONLY | O_NONBLOCK);
  while (::write(pipe, "\n", 1) == 1) {
  }
  ::close(pipe);
}

std::vector<json> reports(const std::string& output) {
  std::istringstream lines(output);
  std::vector<json> result;
  for (std::string line; std::getline(lines, line);)
    if (!line.empty()) result.push_back(json::parse(line));
  return result;
}

/// A home folder with the scripted tools.
struct Scene {
  const TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate";

  explicit Scene(const std::string& settings = "{}", const std::string& toolEnds = "60") {
    writeScript(home.path() / "tools/pmset", pmset);
    writeScript(home.path() / "tools/osascript", osascript);
    writeScript(home.path() / "tools/ps", ps);
    writeScript(home.path() / "tools/ioreg", R"(echo '"AppleClamshellState" = No')");
    writeScript(tool, "echo \"tool $$\" >> ~/calls; exec sleep " + toolEnds);
    writeFile(settingsFile(), settings);
  }
  ~Scene() {
    for (const std::string call : {"tool", "engage", "restore"})
      for (const auto pid : running(call)) ::kill(pid, SIGKILL);
  }

  void put(const std::string& file, const std::string& content = "") const {
    writeFile(home.path() / file, content);
  }
  void remove(const std::string& file) const { fs::remove(home.path() / file); }

  std::vector<std::string> command(const std::string& text) const {
    std::istringstream words("--tools " + (home.path() / "tools ").string() + text);
    return {std::istream_iterator<std::string>(words), {}};
  }
  std::vector<std::string> watch(const std::string& options = "") const {
    return command("watch --json --interval 0.2 --release-delay 0 --caffeinate " + tool.string() +
                   " " + options);
  }
  std::vector<std::string> manualWatch() const { return watch("--mode manualKeepAwake"); }

  /// The processes that were asked for this, in order.
  std::vector<std::int32_t> calls(const std::string& what) const {
    std::istringstream lines(contentOf(home.path() / "calls"));
    std::vector<std::int32_t> pids;
    for (std::string line; std::getline(lines, line);)
      if (line.starts_with(what + ' ') && line.rfind(' ') == what.size())
        pids.push_back(std::stoi(line.substr(what.size())));
    return pids;
  }
  /// Those that run. A zombie does not: nobody may reap what a watch has left.
  std::vector<std::int32_t> running(const std::string& what) const {
    auto pids = calls(what);
    std::erase_if(pids, [](auto pid) { return stateOf(pid) == '\0' || stateOf(pid) == 'Z'; });
    return pids;
  }
  bool isHeld() const { return !running("tool").empty(); }
  bool isOn() const { return fs::exists(home.path() / "on"); }
  bool isMarked() const { return fs::exists(SleepController::engagedMarkerURL()); }
};

/// A watch in a session and on a terminal of its own; killed at the end of the test.
struct OnTerminal {
  int keyboard = -1;
  const pid_t id;

  explicit OnTerminal(std::vector<std::string> arguments) : id(start(std::move(arguments))) {}
  ~OnTerminal() {
    ::kill(id, SIGKILL);
    ::waitpid(id, nullptr, 0);
    ::close(keyboard);
  }
  void type(char key) const { EXPECT_EQ(::write(keyboard, &key, 1), 1); }

 private:
  pid_t start(std::vector<std::string> words) {
    words.insert(words.begin(), WAKELATCH_HOST_PROGRAM);
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);
    const pid_t pid = ::forkpty(&keyboard, nullptr, nullptr, nullptr);
    if (pid == 0) ::_exit(::execv(argv[0], argv.data()));
    return pid;
  }
};
constexpr char ctrlS = '\x13', ctrlZ = '\x1a';

TEST(WatchFaults, OutputThatNobodyTakesKeepsItFromNothing) {
  for (const bool isTerminal : {false, true}) {
    SCOPED_TRACE(isTerminal ? "terminal, Ctrl-S" : "pipe");
    const Scene scene;
    std::optional<HostProgram> piped;
    std::optional<OnTerminal> shown;
    isTerminal ? void(shown.emplace(scene.manualWatch()))
               : void(piped.emplace(scene.manualWatch()));
    const auto watch = isTerminal ? shown->id : piped->id();
    ASSERT_TRUE(eventually([&] { return scene.isHeld(); }));
    isTerminal ? shown->type(ctrlS) : stuff(watch);
    pause(0.8);  // some lines that nobody takes
    scene.put("flat");
    EXPECT_LT(secondsUntil([&] { return !scene.isHeld(); }), soon);
    ::kill(watch, SIGTERM);
    EXPECT_LT(secondsUntil([&] { return statusOf(watch) == 0; }), soon);
  }
}

TEST(WatchFaults, AReaderWhoComesBackGetsTheNewestLine) {
  const Scene scene;
  HostProgram watch(scene.manualWatch());
  ASSERT_TRUE(eventually([&] { return scene.isHeld(); }));
  stuff(watch.id());
  pause(0.8);
  scene.put("flat");
  ASSERT_LT(secondsUntil([&] { return !scene.isHeld(); }), soon);
  pause(0.8);
  EXPECT_FALSE(watch.awaitExit(1)) << "read meanwhile";
  const std::size_t ticks = scene.calls("-g batt").size();
  watch.send(SIGTERM);
  const Outcome outcome = watch.finish();
  EXPECT_EQ(outcome.status, 0);
  const auto lines = reports(outcome.out);
  EXPECT_LT(lines.size(), ticks);
  EXPECT_EQ(lines.front()["decision"]["status"], "keepingAwake");
  for (const std::size_t fromEnd : {1, 2, 3})
    EXPECT_EQ(lines.at(lines.size() - fromEnd)["decision"]["status"], "batterySafety");
  EXPECT_THAT(outcome.err, HasSubstr("dropped"));
}

TEST(WatchFaults, AStoppedWatchHoldsNothing) {
  const Scene scene;
  const OnTerminal watch(scene.manualWatch());
  ASSERT_TRUE(eventually([&] { return scene.isHeld(); }));
  watch.type(ctrlZ);
  ASSERT_LT(secondsUntil([&] { return stateOf(watch.id) == 'T'; }), soon);
  EXPECT_FALSE(scene.isHeld());
  const auto state = runningWatchState();
  EXPECT_TRUE(state && state->isStopped);
  const std::string before = contentOf(scene.home.path() / "calls");
  ::kill(watch.id, SIGCONT);
  EXPECT_LT(secondsUntil([&] { return scene.isHeld(); }), soon);
  const std::string after = contentOf(scene.home.path() / "calls").substr(before.size());
  EXPECT_LT(after.find("-g batt "), after.find("tool ")) << "started without a look at the battery";
  EXPECT_EQ(scene.calls("tool").size(), 2u);
}

TEST(WatchFaults, ARefusedRestoreIsTriedAgainInDangerAndIsAProblemMeanwhile) {
  const Scene scene(lidClosed);
  scene.put("work");
  HostProgram watch(scene.watch());
  ASSERT_TRUE(eventually([&] { return scene.isMarked(); }));
  scene.put("restore", "exit 1");
  scene.remove("work");
  const auto direct = [&] { return scene.calls("-a disablesleep 0").size(); };
  const auto asleep = [&] { return scene.calls("sleepnow").size(); };
  ASSERT_TRUE(eventually([&] { return direct() > 0 && !scene.isHeld(); }));
  const Outcome doctor = runHost(scene.command("doctor"));
  EXPECT_EQ(doctor.status, 1);
  EXPECT_THAT(doctor.out, ContainsRegex("PROBLEM[^\n]*lid-closed"));

  const std::size_t before = direct(), asleepBefore = asleep();
  scene.put("flat");
  EXPECT_LT(secondsUntil([&] { return direct() > before && asleep() > asleepBefore; }), soon);
  watch.send(SIGTERM);
  EXPECT_EQ(watch.finish().status, 3);
  EXPECT_TRUE(scene.isMarked());
}

TEST(WatchFaults, ARefusedRestoreIsAskedForOnce) {
  const Scene scene(lidClosed);
  scene.put("restore", "exit 1");
  HostProgram watch(scene.watch());
  for (int cycle = 1; cycle <= 3; ++cycle) {
    scene.put("work");
    ASSERT_TRUE(eventually([&] { return scene.isMarked() && scene.isHeld(); }));
    scene.remove("work");
    ASSERT_TRUE(eventually([&] { return !scene.isHeld(); }));
  }
  pause(0.6);
  EXPECT_EQ(scene.calls("restore").size(), 1u);
}

TEST(WatchFaults, AnOpenPromptKeepsItFromNothing) {
  const struct {
    std::string last;      ///< what the prompt does when it is ended
    bool mayRestore;       ///< without a prompt
    std::size_t restores;  ///< at least so many are tried
    int status;
  } rows[] = {{":", false, 0, 0}, {"touch ~/on", true, 1, 0}, {"touch ~/on", false, 1, 3}};
  for (const auto& [last, mayRestore, restores, status] : rows) {
    SCOPED_TRACE(last + (mayRestore ? ", may restore" : ""));
    const Scene scene(lidClosed);
    scene.put("work");
    scene.put("engage", openPrompt(last));
    scene.put("restore", "exit 1");
    if (mayRestore) scene.put("root");
    HostProgram watch(scene.watch());
    ASSERT_TRUE(eventually([&] { return scene.running("engage").size() == 1; }));
    const auto prompt = scene.calls("engage")[0];
    std::string out;
    ASSERT_LT(secondsUntil([&] {
                watch.awaitExit(0.05);
                out += watch.takeStandardOutput();
                return reports(out.substr(0, out.rfind('\n') + 1)).size() > 3;
              }),
              soon);
    EXPECT_TRUE(scene.isHeld());
    EXPECT_NE(stateOf(prompt), '\0') << "open while the lines came";
    scene.put("flat");
    EXPECT_LT(secondsUntil([&] { return !scene.isHeld() && stateOf(prompt) == '\0'; }), soon);
    const auto isTried = [&, least = restores] {
      return scene.calls("-a disablesleep 0").size() >= least;
    };
    EXPECT_LT(secondsUntil([&] { return isTried() && scene.isOn() == scene.isMarked(); }), soon);
    watch.send(SIGTERM);
    EXPECT_EQ(watch.finish().status, status);
    EXPECT_EQ(scene.isOn(), status == 3);
    EXPECT_EQ(scene.isMarked(), status == 3);
    const auto usage = loadUsage(usageFile());
    EXPECT_NE(usage.value().lastCloseReason, SessionCloseReason::interrupted);
  }
}

TEST(WatchFaults, AStopEndsAnOpenPromptAndSaysSo) {
  const Scene scene(lidClosed);
  scene.put("work");
  scene.put("engage", openPrompt("touch ~/on"));
  HostProgram watch(scene.watch());
  ASSERT_TRUE(eventually([&] { return scene.running("engage").size() == 1; }));
  EXPECT_FALSE(watch.awaitExit(0.5));
  watch.takeStandardError();
  watch.send(SIGTERM);
  EXPECT_LT(
      secondsUntil([&] { return watch.awaitExit(0.01) || !watch.takeStandardError().empty(); }),
      1 + 1);
  const auto prompt = scene.calls("engage")[0];
  EXPECT_LT(secondsUntil([&] { return watch.awaitExit(0.01) || stateOf(prompt) == '\0'; }), soon);
  const std::int32_t status = watch.finish(soon).status;
  EXPECT_EQ(status, scene.isOn() ? 3 : 0);
  EXPECT_EQ(scene.isMarked(), scene.isOn());
  EXPECT_FALSE(scene.isHeld());
  EXPECT_TRUE(scene.running("engage").empty());
}

TEST(WatchFaults, ASecondStopLeavesTheSettingMarkedAndNoProcess) {
  const Scene scene(lidClosed);
  scene.put("work");
  scene.put("restore", openPrompt(":"));
  HostProgram watch(scene.watch());
  ASSERT_TRUE(eventually([&] { return scene.isMarked() && scene.isHeld(); }));
  watch.send(SIGTERM);
  ASSERT_TRUE(eventually([&] { return !scene.calls("restore").empty(); }));
  pause(0.7);  // sooner it would be taken for an echo of the first
  watch.send(SIGTERM);
  EXPECT_LT(secondsUntil([&] { return statusOf(watch.id()) == 128 + SIGTERM; }), soon);
  EXPECT_TRUE(eventually([&] { return scene.running("restore").empty() && !scene.isHeld(); }, 1));
  EXPECT_TRUE(scene.isOn() && scene.isMarked());
}

TEST(WatchFaults, AToolThatKeepsEndingIsGivenARest) {
  const Scene scene("{}", "1.5");
  const Outcome outcome = runHost(scene.watch("--mode manualKeepAwake --ticks 25"));
  EXPECT_EQ(outcome.status, 0);
  EXPECT_LE(scene.calls("tool").size(), 2u);
  const std::size_t notice = outcome.err.find("keep-awake tool");
  EXPECT_NE(notice, std::string::npos) << outcome.err;
  EXPECT_EQ(notice, outcome.err.rfind("keep-awake tool"));
  double booked = 0;
  const UsageMetrics usage = loadUsage(usageFile()).value();
  for (const auto& [day, bucket] : usage.days) booked += bucket.manualSeconds;
  EXPECT_LT(booked, 2 * 1.5 + 0.9) << "of five seconds";
}

TEST(WatchFaults, ADryRunTellsOfARealWatchAndStartsNothing) {
  const Scene scene;
  HostProgram dry(scene.watch("--mode manualKeepAwake --dry-run"));
  const auto says = [&](bool isRunning) {
    return eventually([&] {
      dry.awaitExit(0.3);
      const auto lines = reports(dry.takeStandardOutput());
      return !lines.empty() && lines.back()["isWatchRunning"] == isRunning;
    });
  };
  EXPECT_TRUE(says(false));
  {
    HostProgram watch(scene.manualWatch());
    EXPECT_TRUE(says(true));
    watch.send(SIGTERM);
    EXPECT_EQ(watch.finish().status, 0);
  }
  EXPECT_TRUE(says(false));
  EXPECT_EQ(scene.calls("tool").size(), 1u);
}

}  // namespace
}  // namespace wakelatch::host
