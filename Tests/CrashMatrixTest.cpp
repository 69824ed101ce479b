// A watch that is killed at every step of its work, and what the next one makes of the remains.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <iterator>
#include <map>
#include <sstream>

#include "Host/SupportDirectory.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr double patience = 30;  // seconds; only a failing test waits so long

// The scripts end the watch that runs them where CRASH_AT says. Out of room for its pid file, it
// dies while it writes it; the keep-awake tool, started under the same limit, lifts it for itself.
constexpr const char* pmset = R"sh(
case "$*" in
"-g batt")
  [ "$CRASH_AT" = "before the pid file" ] && prlimit --pid $PPID --core=0 --fsize=0:
  echo "Now drawing from 'AC Power'" ;;
"-g") printf ' SleepDisabled\t\t%s\n' "$(cat "$HOME/setting")" ;;
*) echo "pmset: must be run as root" >&2; exit 1 ;;
esac)sh";

constexpr const char* osascript = R"sh(
value=$(expr "$2" : 'do shell script "pmset -a disablesleep \([01]\)" with prompt ')
crash() {
  [ "$CRASH_AT" = "$1" ] || return 0
  # The log has a thread of its own: let it write what precedes the prompt.
  until tail -n 1 "$HOME/Library/Logs/Wakelatch.log" | grep -q 'pmset disablesleep'; do :; done
  kill -KILL $PPID; exit 1
}
[ "$REFUSED" = "$value" ] && exit 1
case "$CRASH_AT" in prompt*)
  [ "$CRASH_AT" = "prompt being cancelled" ] &&
    trap 'echo $value > "$HOME/setting"; kill -KILL $PPID; exit 1' TERM
  touch "$HOME/prompt open"
  while kill -0 $PPID 2>/dev/null; do sleep 0.05; done
  exit 1 ;;
esac
crash "before setting $value"
echo $value > "$HOME/setting"
crash "after setting $value")sh";

// In a change of posture the first one outlives one request to end, and says so.
constexpr const char* caffeinate = R"sh(
ulimit -S -f unlimited
[ "$CRASH_AT$1" = "posture change-dimsu" ] && trap 'touch "$HOME/asked to end"; trap - TERM' TERM
echo $$ >> "$HOME/pids"
while :; do sleep 0.1; done)sh";

/// A home directory with the scripted tools, and one watch after the other in it.
struct Scene {
  TemporaryHome home;
  const fs::path log = home.path() / "Library/Logs/Wakelatch.log";
  const fs::path setting = home.path() / "setting", tool = home.path() / "caffeinate";
  const std::string watch = "watch --interval 0.1 --caffeinate " + tool.string();

  explicit Scene(const std::string& settings) {
    writeScript(home.path() / "tools/pmset", pmset);
    writeScript(home.path() / "tools/osascript", osascript);
    writeScript(tool, caffeinate);
    writeFile(setting, "0\n");
    writeFile(settingsFile(), settings);
  }
  ~Scene() {
    for (const auto pid : running()) ::kill(pid, SIGKILL);
  }

  /// What starts a command that meets such a crash and such a refusal of the administrator.
  std::vector<std::string> command(const std::string& text, const std::string& crashAt = "",
                                   const std::string& refused = "") const {
    ::setenv("CRASH_AT", crashAt.c_str(), 1);
    ::setenv("REFUSED", refused.c_str(), 1);
    std::istringstream words("--tools " + (home.path() / "tools ").string() + text);
    return {std::istream_iterator<std::string>(words), {}};
  }

  /// Every keep-awake process ever started, in order.
  std::vector<std::int32_t> pids() const {
    std::istringstream text(contentOf(home.path() / "pids"));
    return {std::istream_iterator<std::int32_t>(text), {}};
  }

  /// Those that run. A zombie does not: nobody may reap what a killed watch has left.
  std::vector<std::int32_t> running() const {
    auto result = pids();
    std::erase_if(result, [](std::int32_t pid) {
      std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
      std::string stat;
      return !std::getline(file, stat) || stat.find(") Z ") != std::string::npos;
    });
    return result;
  }

  /// The log as one word a line, "started2" and "killed2" of the second keep-awake process; an
  /// unknown line as it is.
  std::string logWords() const {
    std::map<std::string, std::string> words = {
        {"Engaging pmset disablesleep for lid-closed mode", "engage"},
        {"Restoring pmset disablesleep 0", "restore"},
        {"Restoring pmset disablesleep 0 without a prompt", "silent"},
        {"Admin restore failed, trying direct restore: exit code 1", "direct"},
        {"WARNING: pmset disablesleep may still be engaged after the restore attempt — keeping it "
         "tracked for retry (REVIEW #18)",
         "warn"},
        {"Stale disablesleep marker found (system reports sleep enabled) — removing it", "stale"},
        {"disablesleep marker from a previous run found — clearing stuck pmset disablesleep "
         "(REVIEW #2)",
         "stuck"}};
    const auto all = pids();
    for (std::size_t i = 0; i < all.size() && i < 2; ++i) {
      const std::string id = std::to_string(all[i]);
      words["Started caffeinate pid " + id] = i == 0 ? "started" : "started2";
      words["Killed orphaned caffeinate pid " + id + " left by a previous run"] =
          i == 0 ? "killed" : "killed2";
    }
    std::istringstream lines(fs::is_regular_file(log) ? contentOf(log) : "");
    std::string result;
    for (std::string line; std::getline(lines, line);) {
      const std::string message = line.substr(std::min<std::size_t>(line.size(), 23));
      // Told to end while it is being started or replaced, a tool may be gone before it is stopped.
      if (message.starts_with("Stopped caffeinate pid ")) continue;
      result += (words.contains(message) ? words[message] : "[" + message + "]") + " ";
    }
    return result;
  }
};

TEST(CrashMatrix, TheNextWatchUndoesWhatAKilledOneLeft) {
  const std::string listed = "Library/Application Support/Lumenhold/caffeinate.pid",
                    marked = "Library/Application Support/Lumenhold/disablesleep.engaged",
                    retiring = "asked to end", prompt = "prompt open", script;
  // What the log says, in words.
  const std::string engaged = "started engage ", left = engaged + "silent warn ",
                    stuck = "stuck restore ",
                    declined = stuck + "direct warn silent warn restore direct warn ";
  struct Next {
    std::string log = "", crashAt = "", refused = "";
    std::string remedy = "";  ///< the command that it names where the setting stays engaged
  };
  const struct {
    std::string step;
    std::string sign;      ///< the file at whose sight the test ends the watch; none: a script does
    int signal;            ///< by which it does; after SIGTERM a script still has a say
    std::string log;       ///< as a regular expression
    Next next;             ///< what the next watch adds, meets and leaves
    std::size_t left = 0;  ///< keep-awake processes that no file names, at most
  } rows[] = {
      {"before the pid file", script, 0, "", {}, 1},
      {"before the log line", listed, SIGKILL, "", {"killed "}},
      {"running", "pids", SIGKILL, "started ", {"killed "}},
      {"posture change", retiring, SIGKILL, "started started2 ", {"killed2 killed "}},
      {"before setting 1", script, 0, engaged, {"killed "}},
      {"after setting 1", script, 0, engaged, {"killed ", "", "", "restore --adopt"}},
      {"engaged", marked, SIGKILL, engaged, {"killed " + stuck}},
      {"engaged, again", marked, SIGKILL, engaged, {"killed " + stuck + stuck, "before setting 0"}},
      {"refused", marked, SIGKILL, engaged, {"killed " + declined, "", "0", "restore"}},
      {"before setting 0", marked, SIGTERM, left + "restore ", {stuck}},
      {"after setting 0", marked, SIGTERM, left + "restore ", {"stale "}},
      {"prompt open", prompt, SIGKILL, engaged, {"killed "}},
      {"prompt being cancelled", prompt, SIGTERM, engaged, {"", "", "", "restore --adopt"}},
      // It may stop before the warning is written.
      {"stopped by SIGTSTP", marked, SIGTSTP, engaged + "silent (warn )?", {stuck}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.step);
    const bool lidClosed = row.log.find("engage") != std::string::npos;
    Scene scene(lidClosed ? R"({"keepAwakeWithLidClosed":true})" : "{}");
    if (row.sign == listed) {  // a log that takes no line
      fs::create_directories(scene.log.parent_path());
      ASSERT_EQ(::mkfifo(scene.log.c_str(), 0600), 0);
    }
    HostProgram watch(
        scene.command(scene.watch + " --mode manualKeepAwake --ticks 1000", row.step));
    const auto logIsWritten = [&] {
      return testing::Matches(testing::MatchesRegex(row.log))(scene.logWords());
    };
    if (row.sign != script) {
      EXPECT_TRUE(eventually([&] { return !scene.pids().empty(); }, patience));
      if (row.sign == retiring) writeFile(settingsFile(), R"({"letDisplaySleep":true})");
      const auto isThere = [&] {
        return fs::exists(scene.home.path() / row.sign) &&
               (row.signal != SIGKILL || logIsWritten());
      };
      EXPECT_TRUE(eventually(isThere, patience)) << scene.logWords();
      watch.send(row.signal);
      if (row.signal == SIGTSTP) {  // it lets go before it stops
        EXPECT_TRUE(eventually(logIsWritten, patience)) << scene.logWords();
        watch.send(SIGKILL);
      }
    }
    EXPECT_EQ(watch.finish(patience).status, row.left > 0 ? SIGXFSZ : SIGKILL);
    EXPECT_TRUE(eventually(logIsWritten, patience)) << scene.logWords();
    if (row.sign == listed) fs::remove(scene.log);

    const auto& [log, crashAt, refused, remedy] = row.next;
    const std::string once = scene.watch + " --mode off --ticks 1";
    if (!crashAt.empty()) {
      EXPECT_EQ(runHost(scene.command(once, crashAt), patience).status, SIGKILL);
    }
    const Outcome next = runHost(scene.command(once, "", refused), patience);
    EXPECT_EQ(next.status, refused.empty() ? 0 : 3);
    EXPECT_THAT(scene.logWords(), testing::MatchesRegex(row.log + log));
    EXPECT_TRUE(eventually([&] { return scene.running().size() <= row.left; }, patience));
    EXPECT_FALSE(fs::exists(SleepController::pidFileURL()));
    EXPECT_EQ(fs::exists(SleepController::engagedMarkerURL()), !refused.empty());
    EXPECT_EQ(contentOf(scene.setting), remedy.empty() ? "0\n" : "1\n");
    EXPECT_EQ(next.err.find("run: wakelatch ") == std::string::npos, remedy.empty()) << next.err;
    if (remedy.empty()) continue;
    EXPECT_THAT(next.err, HasSubstr("run: wakelatch " + remedy + "\n"));
    EXPECT_EQ(runHost(scene.command(remedy), patience).status, 0);
    EXPECT_EQ(contentOf(scene.setting), "0\n");
    EXPECT_FALSE(fs::exists(SleepController::engagedMarkerURL()));
  }
}

}  // namespace
}  // namespace wakelatch::host
