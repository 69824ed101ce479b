// A watch that is killed at every step of its work, and what the next one makes of the remains.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <sstream>

#include "Host/Folder.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryFolder.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr double patience = 30;  // seconds; only a failing test waits so long

// Where a script ends the watch that runs it, and which power setting the administrator refuses.
constexpr const char* crashVariable = "WAKELATCH_TEST_CRASH";
constexpr const char* refusedVariable = "WAKELATCH_TEST_REFUSED";

// Out of room for its pid file, the watch dies while it writes it. The keep-awake tool, which is
// started under the same limit, lifts it for itself.
constexpr const char* pmset = R"sh(
case "$*" in
"-g batt")
  [ "$WAKELATCH_TEST_CRASH" = "before the start" ] && kill -KILL $PPID
  [ "$WAKELATCH_TEST_CRASH" = "before the pid file" ] && prlimit --pid $PPID --core=0 --fsize=0:
  echo "Now drawing from 'AC Power'" ;;
"-g") printf 'System-wide power settings:\n SleepDisabled\t\t%s\n' "$(cat "$HOME/setting")" ;;
*) echo "pmset: must be run as root" >&2; exit 1 ;;
esac)sh";

constexpr const char* osascript = R"sh(
case "$2" in
*'pmset -a disablesleep 1"'*) value=1 ;;
*'pmset -a disablesleep 0"'*) value=0 ;;
esac
crash() {
  [ "$WAKELATCH_TEST_CRASH" = "$1" ] || return 0
  # The log has a thread of its own: let it write what precedes the prompt.
  until tail -n 1 "$HOME/Library/Logs/Wakelatch.log" | grep -q 'pmset disablesleep'; do
    sleep 0.02
  done
  kill -KILL $PPID
  exit 1
}
[ "$WAKELATCH_TEST_REFUSED" = "$value" ] && exit 1
crash "before setting $value"
echo $value > "$HOME/setting"
crash "after setting $value")sh";

// With the display on, it outlives one request to end, and says so.
constexpr const char* caffeinate = R"sh(
ulimit -S -f unlimited
[ "$1" = -dimsu ] && trap 'touch "$HOME/asked to end"; trap - TERM' TERM
echo $$ >> "$HOME/pids"
while :; do sleep 0.1; done)sh";

/// A home folder with the scripted tools, and one watch after the other in it.
struct Scene {
  TemporaryHome home;
  const fs::path tool = home.path() / "caffeinate",
                 log = home.path() / "Library/Logs/Wakelatch.log";

  explicit Scene(bool lidClosed) : lidClosed_(lidClosed) {
    writeScript(home.path() / "tools/pmset", pmset);
    writeScript(home.path() / "tools/osascript", osascript);
    writeScript(tool, caffeinate);
    writeFile(home.path() / "setting", "0\n");
    changeSettings(/*letDisplaySleep=*/true);
  }
  ~Scene() {
    for (const auto pid : pids()) {
      if (isRunning(pid)) ::kill(pid, SIGKILL);
    }
  }

  void changeSettings(bool letDisplaySleep) {
    std::ostringstream text;
    text << std::boolalpha << "{\"keepAwakeWithLidClosed\":" << lidClosed_
         << ",\"letDisplaySleep\":" << letDisplaySleep << "}";
    platform::createFolders(supportFolder());
    platform::writeAtomically(settingsFile(), text.str());
  }

  /// The words of a command line, those that name stand-ins added.
  std::vector<std::string> command(const std::string& text) const {
    std::vector<std::string> result{"--tools", (home.path() / "tools").string()};
    std::istringstream words(text);
    for (std::string word; words >> word;) result.push_back(word);
    return result;
  }

  std::vector<std::string> watch(const std::string& options) const {
    return command("watch --interval 0.1 --caffeinate " + tool.string() + " " + options);
  }

  /// Every keep-awake process ever started, in order.
  std::vector<std::int32_t> pids() const {
    std::istringstream text(contentOf(home.path() / "pids"));
    return {std::istream_iterator<std::int32_t>(text), {}};
  }

  /// Not even a zombie does: nobody may reap those that the watch has left.
  static bool isRunning(std::int32_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    std::getline(file, stat);
    return !stat.empty() && stat.find(") Z ") == std::string::npos;
  }

  std::size_t running() const {
    const auto all = pids();
    return static_cast<std::size_t>(std::count_if(all.begin(), all.end(), isRunning));
  }

  /// The log as one letter a line, upper case for the first keep-awake process, lower for the
  /// second; an unknown line as it is.
  std::string logLetters() const {
    std::map<std::string, std::string> letters = {
        {"Engaging pmset disablesleep for lid-closed mode", "E"},
        {"Restoring pmset disablesleep 0", "R"},
        {"Admin restore failed, trying direct restore: exit code 1", "D"},
        {"WARNING: pmset disablesleep may still be engaged after the restore attempt — keeping it "
         "tracked for retry (REVIEW #18)",
         "W"},
        {"Stale disablesleep marker found (system reports sleep enabled) — removing it", "O"},
        {"disablesleep marker from a previous run found — clearing stuck pmset disablesleep "
         "(REVIEW #2)",
         "M"}};
    bool isFirst = true;
    for (const auto pid : pids()) {
      const std::string id = std::to_string(pid);
      letters["Started caffeinate pid " + id] = isFirst ? "S" : "s";
      letters["Stopped caffeinate pid " + id] = isFirst ? "T" : "t";
      letters["Killed orphaned caffeinate pid " + id + " left by a previous run"] =
          isFirst ? "K" : "k";
      isFirst = false;
    }
    std::string result;
    std::istringstream lines(fs::is_regular_file(log) ? contentOf(log) : "");
    for (std::string line; std::getline(lines, line);) {
      const std::string message = line.substr(std::min<std::size_t>(line.size(), 23));
      result += letters.contains(message) ? letters[message] : "[" + message + "]";
    }
    return result;
  }

 private:
  const bool lidClosed_;
};

TEST(CrashMatrix, TheNextWatchUndoesWhatAKilledOneLeft) {
  using Prepare = void (*)(Scene&);
  const Prepare asIs = [](Scene&) {};
  const Prepare logBlocked = [](Scene& scene) {
    fs::create_directories(scene.log.parent_path());
    EXPECT_EQ(::mkfifo(scene.log.c_str(), 0600), 0);  // nobody reads it, so its writer waits
  };
  const Prepare displayOn = [](Scene& scene) { scene.changeSettings(/*letDisplaySleep=*/false); };
  constexpr auto started = "pids", listed = "Library/Application Support/Lumenhold/caffeinate.pid",
                 marked = "Library/Application Support/Lumenhold/disablesleep.engaged",
                 retiring = "asked to end", byScript = "";
  struct Next {
    std::string log;  ///< that it adds
    const char *crashesAt = "", *refused = "";
    std::string setting = "0", remedy = "";  ///< left so; the command that it names
  };
  const struct {
    const char* step;  ///< where a script may end the watch
    bool lidClosed;
    Prepare prepare;
    const char* sign;  ///< else the test does once there is this file,
    int signal;        ///< by this signal, after which a script may still have a say
    std::string log;
    Next next;
    std::size_t left = 0;  ///< processes that no file names
  } rows[] = {
      {"before the start", false, asIs, byScript, 0, "", {""}},
      {"before the pid file", false, asIs, byScript, 0, "", {""}, 1},
      {"before the log line", false, logBlocked, listed, SIGKILL, "", {"K"}},
      {"running", false, asIs, started, SIGKILL, "S", {"K"}},
      {"posture change", false, displayOn, retiring, SIGKILL, "Ss", {"kK"}},
      {"before setting 1", true, asIs, byScript, 0, "SE", {"K"}},
      {"after setting 1", true, asIs, byScript, 0, "SE", {"K", "", "", "1", "restore --adopt"}},
      {"engaged", true, asIs, marked, SIGKILL, "SE", {"KMR"}},
      {"engaged, then again", true, asIs, marked, SIGKILL, "SE", {"KMRMR", "before setting 0"}},
      {"engaged, then refused",
       true,
       asIs,
       marked,
       SIGKILL,
       "SE",
       {"KMRDWRDW", "", "0", "1", "restore"}},
      {"before setting 0", true, asIs, marked, SIGTERM, "SETR", {"MR"}},
      {"after setting 0", true, asIs, marked, SIGTERM, "SETR", {"O"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.step);
    Scene scene(row.lidClosed);
    row.prepare(scene);
    ::setenv(crashVariable, row.step, 1);
    HostProgram watch(scene.watch("--mode manualKeepAwake --ticks 1000"));
    if (row.sign != byScript) {
      EXPECT_TRUE(eventually([&] { return !scene.pids().empty(); }, patience));
      scene.changeSettings(/*letDisplaySleep=*/true);
      EXPECT_TRUE(eventually(
          [&] {
            return fs::exists(scene.home.path() / row.sign) &&
                   (row.signal != SIGKILL || scene.logLetters() == row.log);
          },
          patience));
      watch.send(row.signal);
    }
    const std::int32_t end = watch.finish(patience).status;
    EXPECT_EQ(end, row.left > 0 ? SIGXFSZ : SIGKILL);
    EXPECT_EQ(scene.logLetters(), row.log);
    if (!fs::is_regular_file(scene.log)) fs::remove(scene.log);

    ::setenv(crashVariable, row.next.crashesAt, 1);
    if (*row.next.crashesAt != '\0') {
      EXPECT_EQ(runHost(scene.watch("--mode off --ticks 1"), patience).status, SIGKILL);
    }
    ::unsetenv(crashVariable);
    ::setenv(refusedVariable, row.next.refused, 1);
    const Outcome next = runHost(scene.watch("--mode off --ticks 1"), patience);
    ::unsetenv(refusedVariable);
    const bool isRefused = *row.next.refused != '\0';
    EXPECT_EQ(next.status, isRefused ? 3 : 0);
    EXPECT_EQ(scene.logLetters(), row.log + row.next.log);
    EXPECT_TRUE(eventually([&] { return scene.running() == row.left; }, patience));
    EXPECT_EQ(fs::exists(SleepController::pidFileURL()), false);
    EXPECT_EQ(fs::exists(SleepController::engagedMarkerURL()), isRefused);
    EXPECT_EQ(contentOf(scene.home.path() / "setting"), row.next.setting + "\n");
    if (row.next.remedy.empty()) {
      EXPECT_THAT(next.err, Not(HasSubstr("run: wakelatch")));
      continue;
    }
    EXPECT_THAT(next.err, HasSubstr("run: wakelatch " + row.next.remedy + "\n"));
    EXPECT_EQ(runHost(scene.command(row.next.remedy), patience).status, 0);
    EXPECT_EQ(contentOf(scene.home.path() / "setting"), "0\n");
    EXPECT_FALSE(fs::exists(SleepController::engagedMarkerURL()));
  }
}

}  // namespace
}  // namespace wakelatch::host
