// A watch whose reader, terminal, prompts and tools do what they should not: it decides at its
// interval all the same, and what it decides is done.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <sstream>

#include "Host/SupportDirectory.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"

#include <nlohmann/json.hpp>

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using namespace std::chrono_literals;
using testing::ContainsRegex, testing::HasSubstr;

constexpr double soon = 3 * 0.2 + 2;  // seconds: three intervals, and a busy machine's delays
const std::string manual = "manualKeepAwake";
constexpr const char* lidClosed = R"({"keepAwakeWithLidClosed":true,"idleGracePeriodSeconds":0})";

// Files in the home directory tell the scripts what to do, which note in "calls" their ids and what
// they were asked for.
constexpr const char* pmset = R"sh(
echo "$$ $*" >> ~/calls
case "$*" in
"-g batt") [ -e ~/flat ] && charge=5 || charge=80
  echo "Now drawing from 'Battery Power' $charge%" ;;
-g) [ -e ~/on ] && on=1 || on=0
  echo " SleepDisabled $on" ;;
"-a disablesleep 0") [ -e ~/root ] && rm -f ~/on ;;
esac)sh";

constexpr const char* osascript = R"sh(
case "$2" in *"disablesleep 1"*) prompt=engage ;; *) prompt=restore ;; esac
echo "$$ $prompt" >> ~/calls
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

double secondsUntil(const std::function<bool()>& condition) {
  const auto start = std::chrono::steady_clock::now();
  if (!eventually(condition)) return std::numeric_limits<double>::infinity();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Presses Ctrl-S.
void stopTerminal(int keyboard) {
  EXPECT_EQ(::write(keyboard, "\x13", 1), 1);
}

/// Fills the pipe that a program prints to.
void stuff(std::int32_t program) {
  const std::string output = "/proc/" + std::to_string(program) + "/fd/1";
  const int pipe = ::open(output.c_str(), O_WRONLY | O_NONBLOCK);
  while (::write(pipe, "\n", 1) == 1) {
  }
  ::close(pipe);
}

/// A home directory with the scripted tools.
struct Scene {
  const TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate";

  explicit Scene(const std::string& settings = "{}", const std::string& toolEnds = "60") {
    writeScript(home.path() / "tools/pmset", pmset);
    writeScript(home.path() / "tools/osascript", osascript);
    writeScript(home.path() / "tools/ps", ps);
    writeScript(home.path() / "tools/ioreg", R"(echo '"AppleClamshellState" = No')");
    writeScript(tool, "echo $$ tool >> ~/calls; exec sleep " + toolEnds);
    writeFile(settingsFile(), settings);
    put("Library/Application Support/Lumenhold/defaults.json",
        R"({"Lumenhold.hasCompletedOnboarding":true})");
  }
  ~Scene() {
    for (const std::string call : {"tool", "engage", "restore"})
      for (const auto pid : running(call)) ::kill(pid, SIGKILL);
  }

  void put(const std::string& file, const std::string& content = "") const {
    writeFile(home.path() / file, content);
  }

  std::vector<std::string> command(const std::string& text) const {
    std::istringstream words("--tools " + (home.path() / "tools ").string() + text);
    return {std::istream_iterator<std::string>(words), {}};
  }
  std::vector<std::string> watch(const std::string& mode = "watchAgentUI --release-delay 0") const {
    return command("watch --json --interval 0.2 --caffeinate " + tool.string() + " --mode " + mode);
  }

  /// The processes that were asked for this, in order.
  std::vector<std::int32_t> calls(const std::string& what) const {
    std::istringstream lines(contentOf(home.path() / "calls"));
    std::vector<std::int32_t> pids;
    std::int32_t pid = 0;
    for (std::string call; lines >> pid && std::getline(lines, call);)
      if (call == ' ' + what) pids.push_back(pid);
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

TEST(WatchFaults, OutputThatNobodyTakesKeepsItFromNothing) {
  const std::string pipe = "pipe", pipeReadAgain = "pipe, read again", terminal = "Ctrl-S";
  for (const std::string& output : {pipe, pipeReadAgain, terminal}) {
    SCOPED_TRACE(output);
    const Scene scene;
    const platform::Descriptor keyboard(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC));
    ASSERT_EQ(::grantpt(keyboard.get()) + ::unlockpt(keyboard.get()), 0);
    std::string line = "exec " WAKELATCH_HOST_PROGRAM;
    for (const std::string& word : scene.watch(manual)) line += " " + word;
    if (output == terminal) line += std::string(" >") + ::ptsname(keyboard.get()) + " 2>&1";
    platform::ChildProcess watch("/bin/sh", {"-c", line}, platform::ChildOutput::captured);
    ASSERT_TRUE(eventually([&] { return runningWatchState() && scene.isHeld(); }));
    std::this_thread::sleep_for(300ms);  // a line is out
    output == terminal ? stopTerminal(keyboard.get()) : stuff(watch.id());
    std::this_thread::sleep_for(600ms);  // more are not
    scene.put("flat");
    EXPECT_LT(secondsUntil([&] { return !scene.isHeld(); }), soon);
    if (output == pipeReadAgain) {
      std::this_thread::sleep_for(1800ms);  // more than may wait
      watch.awaitExit(1);
    }
    const std::size_t ticks = scene.calls("-g batt").size();
    watch.send(SIGTERM);
    EXPECT_LT(secondsUntil([&] { return stateOf(watch.id()) == 'Z'; }), soon);
    watch.send(SIGKILL);
    watch.awaitExit(1);
    EXPECT_EQ(watch.reap().number, 0);
    if (output != pipeReadAgain) continue;
    std::istringstream lines(watch.takeStandardOutput());
    std::vector<std::string> told;
    for (std::string text; lines >> std::ws && std::getline(lines, text);)
      told.push_back(json::parse(text)["decision"]["status"]);
    EXPECT_LT(told.size(), ticks);
    EXPECT_EQ(told.front(), "keepingAwake");
    EXPECT_EQ(told.at(told.size() - 2) + told.back(), "batterySafetybatterySafety");
    EXPECT_THAT(watch.takeStandardError(), HasSubstr("dropped"));
  }
}

TEST(WatchFaults, AStoppedWatchHoldsNothing) {
  const Scene scene;
  HostProgram watch(scene.watch(manual));
  ASSERT_TRUE(eventually([&] { return scene.isHeld(); }));
  watch.send(SIGTSTP);
  EXPECT_LT(secondsUntil([&] { return stateOf(watch.id()) == 'T'; }), soon);
  EXPECT_FALSE(scene.isHeld());
  const auto state = runningWatchState();
  EXPECT_TRUE(state && state->isStopped);
  const std::string before = contentOf(scene.home.path() / "calls");
  watch.send(SIGCONT);
  EXPECT_LT(secondsUntil([&] { return scene.isHeld(); }), soon);
  const std::string after = contentOf(scene.home.path() / "calls").substr(before.size());
  EXPECT_LT(after.find("-g batt\n"), after.find("tool\n"))
      << "started without a look at the battery";
  EXPECT_EQ(scene.calls("tool").size(), 2u);
}

TEST(WatchFaults, ARefusedRestoreIsAProblemAskedForOnceAndTriedAgainInDanger) {
  const Scene scene(lidClosed);
  scene.put("restore", "exit 1");
  HostProgram watch(scene.watch());
  for (int cycle = 1; cycle <= 3; ++cycle) {
    scene.put("work");
    ASSERT_TRUE(eventually([&] { return scene.isMarked() && scene.isHeld(); }));
    fs::remove(scene.home.path() / "work");
    ASSERT_TRUE(eventually([&] { return !scene.isHeld() && !scene.calls("restore").empty(); }));
    std::this_thread::sleep_for(400ms);  // the refusal comes in
  }
  EXPECT_EQ(scene.calls("restore").size(), 1u);
  EXPECT_THAT(runHost(scene.command("doctor")).out, ContainsRegex("PROBLEM[^\n]*lid-closed"));

  const auto tried = [&] { return scene.calls("-a disablesleep 0").size(); };
  const auto asleep = [&] { return scene.calls("sleepnow").size(); };
  const auto triedBefore = tried(), asleepBefore = asleep();
  scene.put("flat");
  EXPECT_LT(secondsUntil([&] { return tried() > triedBefore && asleep() > asleepBefore; }), soon);
  watch.send(SIGTERM);
  EXPECT_EQ(watch.finish().status, 3);
  EXPECT_TRUE(scene.isMarked());
}

TEST(WatchFaults, AnOpenPromptKeepsItFromNothing) {
  const struct {
    std::string last;      ///< what the prompt does when it is ended
    bool mayRestore;       ///< without a prompt
    std::size_t restores;  ///< at least so many are tried
    int status;
  } rows[] = {{":", false, 0, 0}, {"touch ~/on", true, 1, 0}, {"touch ~/on", false, 1, 3}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.last + (row.mayRestore ? ", may restore" : ""));
    const Scene scene(lidClosed);
    scene.put("work");
    scene.put("engage", openPrompt(row.last));
    scene.put("restore", "exit 1");
    if (row.mayRestore) scene.put("root");
    HostProgram watch(scene.watch());
    ASSERT_TRUE(eventually([&] { return scene.running("engage").size() == 1; }));
    const auto prompt = scene.calls("engage")[0];
    std::string out;
    const auto hasTicked = [&] {
      watch.awaitExit(0.05);
      out += watch.takeStandardOutput();
      return std::count(out.begin(), out.end(), '\n') > 3;
    };
    ASSERT_LT(secondsUntil(hasTicked), soon);
    EXPECT_TRUE(scene.isHeld());
    EXPECT_NE(stateOf(prompt), '\0') << "open while the lines came";
    scene.put("flat");
    EXPECT_LT(secondsUntil([&] { return !scene.isHeld() && stateOf(prompt) == '\0'; }), soon);
    const auto isTried = [&] { return scene.calls("-a disablesleep 0").size() >= row.restores; };
    EXPECT_LT(secondsUntil([&] { return isTried() && scene.isOn() == scene.isMarked(); }), soon);
    watch.send(SIGTERM);
    EXPECT_EQ(watch.finish().status, row.status);
    EXPECT_TRUE(scene.isOn() == scene.isMarked() && scene.isOn() == (row.status == 3));
    EXPECT_NE(loadUsage(usageFile()).value().lastCloseReason, SessionCloseReason::interrupted);
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
  const auto isSaid = [&] {
    watch.awaitExit(0.01);
    return !watch.takeStandardError().empty();
  };
  EXPECT_LT(secondsUntil(isSaid), 1 + 1);
  const auto prompt = scene.calls("engage")[0];
  EXPECT_LT(secondsUntil([&] { return stateOf(prompt) == '\0'; }), soon);
  const std::int32_t status = watch.finish(soon).status;
  EXPECT_EQ(status, scene.isOn() ? 3 : 0);
  EXPECT_EQ(scene.isMarked(), scene.isOn());
  EXPECT_FALSE(scene.isHeld());
}

TEST(WatchFaults, ASecondStopLeavesTheSettingMarkedAndNoProcess) {
  const Scene scene(lidClosed);
  scene.put("work");
  scene.put("restore", openPrompt(":"));
  HostProgram watch(scene.watch());
  ASSERT_TRUE(eventually([&] { return scene.isMarked() && scene.isHeld(); }));
  watch.send(SIGTERM);
  ASSERT_TRUE(eventually([&] { return !scene.calls("restore").empty(); }));
  std::this_thread::sleep_for(700ms);  // sooner it would be taken for an echo of the first
  watch.send(SIGTERM);
  EXPECT_EQ(watch.finish(soon).status, 128 + SIGTERM);
  EXPECT_TRUE(eventually([&] { return scene.running("restore").empty() && !scene.isHeld(); }, 1));
  EXPECT_TRUE(scene.isOn() && scene.isMarked());
}

}  // namespace
}  // namespace wakelatch::host
