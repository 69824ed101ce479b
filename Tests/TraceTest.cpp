// Recording and replaying: the same decisions to the last field, and nothing of a person's work.
#include <gmock/gmock.h>

#include <random>

#include "Host/AgentsFile.h"
#include "Host/StatusReport.h"
#include "Host/SupportDirectory.h"
#include "Host/TimeText.h"
#include "Host/trace/Recorder.h"
#include "Host/trace/Replay.h"
#include "Tests/HostProgram.h"
#include "Tests/ScriptedAccessibility.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr, testing::Not;

/// A machine on which everything changes at random: what runs, for whom, how busy it is and in what
/// order it is listed; files, battery, lid, heat and screens. Tools fail now and then.
class RandomMachine : public CommandRunning, public FileActivityProbing, public TurnReading {
 public:
  explicit RandomMachine(unsigned seed) : random_(seed) {}

  Sources sources() {
    return {[] {}, *this, screen_, *this, *this, [this] { return heat_; }};
  }

  void step(Timestamp now) {
    now_ = now;
    if (below(3) == 0) {
      const std::int32_t pid = 1 + below(40);
      rows_[pid] = {below(45) - 2, commands[static_cast<std::size_t>(below(commands.size()))]};
    }
    if (below(4) == 0) rows_.erase(1 + below(40));
    for (auto& entry : rows_) {
      if (below(3) == 0) entry.second.cpu = below(200) / 10.;
    }
    isReversed_ = below(10) == 0;
    if (below(5) == 0)
      files_["/home/me/.claude/projects/secret/" + names[below(names.size())]] = sometime();
    if (below(9) == 0)
      files_.erase("/home/me/.claude/projects/secret/" + names[below(names.size())]);
    if (below(3) == 0) {
      const std::string session = "/home/me/secret/" + std::to_string(below(4));
      turns_[session] = {session, static_cast<TurnState>(below(5)), sometime(), std::nullopt};
      if (below(2) == 0) turns_[session].pid = 1 + below(40);
    }
    if (below(9) == 0) turns_.erase("/home/me/secret/" + std::to_string(below(4)));
    if (below(20) == 0) isOnBattery_ = !isOnBattery_;
    if (below(30) == 0) isLidClosed_ = !isLidClosed_;
    heat_ = below(40) == 0 ? ThermalState::critical : ThermalState::nominal;
    screen_.trusted = below(50) != 0;
    screen_.running.clear();
    if (below(2) == 0) screen_.show("com.apple.Terminal", "Terminal", "my secret esc to interrupt");
    if (below(3) == 0) screen_.show("com.anthropic.claudefordesktop", "Claude", "Stop response");
  }

  CommandResult run(const ShellCommand& command) override {
    if (below(40) == 0) throw std::runtime_error("busy");
    if (command.executable == "/usr/sbin/ioreg") {
      return {0, isLidClosed_ ? "\"AppleClamshellState\" = Yes" : "none", ""};
    }
    if (command.executable == "/usr/bin/pmset") {
      return {0, isOnBattery_ ? " 'Battery Power' 60%; " : "'AC Power'\n", ""};
    }
    const bool isUsage = command.arguments[1] != "pid=,args=";
    std::vector<std::string> lines;
    for (const auto& [pid, row] : rows_) {
      const auto& [path, arguments] = row.command;
      lines.push_back(std::to_string(pid) + " " +
                      (isUsage
                           ? std::to_string(row.parent) + " " + std::to_string(row.cpu) + " " + path
                           : arguments));
    }
    if (isReversed_) std::reverse(lines.begin(), lines.end());
    std::string text;
    for (const std::string& line : lines) text += line + "\n";
    return {0, text, ""};
  }

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& globs) const override {
    if (globs[0] != ".claude/projects/**/*.jsonl") return std::nullopt;
    std::optional<Timestamp> newest;
    for (const auto& [path, time] : files_) newest = std::max(newest.value_or(time), time);
    return newest;
  }
  ModificationsByPath sessionModifications(const std::vector<std::string>& globs) const override {
    return globs[0] == ".claude/projects/**/*.jsonl" ? files_ : ModificationsByPath();
  }
  std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) override {
    std::vector<TurnRecord> records;
    for (const auto& [session, record] : turns_) {
      if (record.writtenAt >= since && format.globs[0].size() % 2 == 1) records.push_back(record);
    }
    return records;
  }
  std::optional<Timestamp> processStart(std::int32_t pid) override {
    return pid % 5 == 0 ? std::nullopt : std::optional(after(now_, -pid * 10.));
  }
  bool isConnected(std::int32_t pid) override { return pid % 3 == 0; }

 private:
  struct Row {
    std::int32_t parent = 0;
    std::pair<std::string, std::string> command;
    double cpu = 0;
  };
  static inline const std::vector<std::pair<std::string, std::string>> commands = {
      {"claude", "claude -p fix my secret"},
      {"/home/me/.nvm/bin/node", "node /home/me/secret/node_modules/.bin/gemini --model=secret"},
      {"/home/me/secret/claude/versions/2.1", "2.1 secret"},
      {"/Applications/Codex.app/Contents/MacOS/Codex", ""},
      {"/home/me/secret/Other.app/codex", "codex"},
      {"/usr/bin/python3", "python3 /home/me/secret/x.py pi"},
      {"pi", "pi"},
      {"/bin/bash", "bash -c secret gemini-shell-secret"},
      {"/bin/sh", "sh -c secret"},
      {"/opt/Buddy", "buddy"}};
  static inline const std::vector<std::string> names = {"a.jsonl", "agent-b.jsonl",
                                                        "subagents/c.jsonl"};

  template <class T>
  T below(T end) {
    return std::uniform_int_distribution<T>(0, static_cast<T>(end - 1))(random_);
  }
  Timestamp sometime() { return after(platform::now(), -below(400) / 1.01); }

  std::mt19937 random_;
  Timestamp now_;
  std::map<std::int32_t, Row> rows_;
  ModificationsByPath files_;
  std::map<std::string, TurnRecord> turns_;
  bool isReversed_ = false, isOnBattery_ = false, isLidClosed_ = false;
  ThermalState heat_ = ThermalState::nominal;
  ScriptedAccessibility screen_;
};

TEST(Trace, AReplayDecidesWhatWasDecided) {
  for (const bool keepsAll : {false, true}) {
    const TemporaryHome home;
    const fs::path file = home.path() / "trace";
    ::setenv("HOME", "/home/me", 1);  // whose name is not to be told
    RandomMachine machine(keepsAll ? 7 : 8);
    const AgentProfiles profiles = loadAgents({installedAgentsFile()}).profiles;
    Recorder recorder(machine.sources(),
                      {.pid = 4711, .profiles = profiles, .keepsAllProcesses = keepsAll});
    Observer observer(recorder.sources(), profiles);
    AgentStateMachine stateMachine;
    TickLines lines(/*isJSON=*/true);
    GuardSettings settings;
    Held held;
    const std::int64_t start = platform::millisecondsSince1970(platform::now());
    std::ofstream trace(file);
    trace << recorder.header(settings, platform::fromMilliseconds(start)) << '\n';
    std::vector<std::string> recorded;
    for (int i = 0; i < 2000; ++i) {
      if (i == 500) settings.targetApps = {"Buddy"};
      if (i == 900) settings.disabledAgentIDs = {"codex-cli"};
      held.letDisplaySleep = i % 7 > 3 ? std::optional(true) : std::nullopt;
      const Timestamp now =
          platform::fromMilliseconds(start + std::int64_t{10} * i - (i > 1500 ? 100'000 : 0));
      machine.step(now);
      OneTick tick = decide(stateMachine, AppMode::watchAgentUI, settings, held.isHeld(),
                            observer.look(settings, now));
      tick.isWatchRunning = true;
      tick.watch = stateAfter(tick, stateMachine.memory(), held, 4711, 2);
      trace << recorder.tick(tick.seen, settings, held) << '\n';
      recorded.push_back(*lines.next(makeStatusReport(tick), {}));
    }
    trace << R"({"ms":20)" << std::flush;  // cut short
    Replay replay(file, {.settings = {}, .profiles = profiles});
    TickLines again(/*isJSON=*/true);
    std::size_t ticks = 0;
    while (const auto tick = replay.next()) {
      ASSERT_EQ(again.next(makeStatusReport(*tick), {}), recorded.at(ticks)) << "tick " << ticks;
      ++ticks;
    }
    EXPECT_EQ(ticks, recorded.size());
    EXPECT_TRUE(replay.isCutShort());
    EXPECT_EQ(contentOf(file).find("secret") != std::string::npos, keepsAll);
  }
}

TEST(Trace, ArgumentsAreReducedToWhatTellsAnAgent) {
  const AgentResolver resolver(AgentCatalog::builtin());
  const Privacy privacy(resolver, {"Acme"}, "/home/me");
  const struct {
    std::string command, arguments, kept;
  } rows[] = {
      {"claude", "claude -p fix run of /home/me/x --model=opus", "claude -p … run … … --model"},
      {"codex", "/home/me/bin/codex exec --json say gemini", "~/bin/codex exec --json … …"},
      {"/usr/bin/node", "node --max-old-space-size=9 /home/me/bin/gemini -p hi",
       "node --max-old-space-size ~/bin/gemini -p …"},
      {"/usr/bin/node", "node /home/me/x/y/app.js pi tell claude", "node ~/…/app.js pi … claude"},
      {"/usr/bin/tail", "tail -f /home/me/x/claude-code/x/y", "tail -f …/claude-code/…"},
      {"/home/me/x/claude/versions/2", "2 -xsecret", "2 -x…"},
      {"/home/me/x", "x --dir=/srv/claude-code/a --key=1", "x …/claude-code/… --key"},
      {"claude", "claude why -pthread is secret", "claude … -p… … …"},
      {"claude", "", ""}};
  for (const auto& row : rows) {
    ProcessSnapshot process{7, 1, 0, row.command, row.arguments};
    privacy.reduceAgent(process);
    EXPECT_EQ(process.arguments, row.kept);
    const auto* before = resolver.profileForCommand(row.command, row.arguments);
    EXPECT_TRUE(before && before == resolver.profileForCommand(process.command, process.arguments))
        << row.arguments;
  }
  // Where the home directory itself makes a process an agent's, it stays.
  const Privacy odd(resolver, {}, "/srv/claude-code");
  ProcessSnapshot shell{7, 1, 0, "/srv/claude-code/sh", "sh secret"};
  odd.reduceAgent(shell);
  EXPECT_EQ(shell.command + " " + shell.arguments, "/srv/claude-code/sh sh …");
  EXPECT_EQ(privacy.withoutHome("/home/me /home/meg /home/me/x"), "~ /home/meg ~/x");
}

TEST(Trace, AWatchAndItsReplayPrintTheSameLines) {
  const TemporaryHome home;
  const fs::path tools = home.path() / "tools", trace = home.path() / "trace";
  writeScript(tools / "ps", R"(n=$(cat ~/n || echo 10)
case "$*" in *pcpu=*) echo $((n + 1)) > ~/n; echo "77 1 $((n % 13)) codex"; echo "78 77 0.$n sh" ;;
*) echo "77 codex" ;; esac)");
  writeScript(home.path() / "tool", "exec sleep 60");
  HostProgram watch({"--tools", tools, "watch", "--json", "--interval", "0.05", "--record", trace,
                     "--caffeinate", home.path() / "tool"});
  const auto ticks = [&] {
    const std::string text = contentOf(trace);
    return std::count(text.begin(), text.end(), '\n');
  };
  ASSERT_TRUE(eventually([&] { return ticks() > 15; }));
  writeFile(settingsFile(), R"({"activePhrases":["x"]})");
  ASSERT_TRUE(eventually([&] { return ticks() > 40; }));
  watch.send(SIGTERM);
  const Outcome outcome = watch.finish();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  const Outcome replayed = runHost({"replay", "--json", trace});
  EXPECT_EQ(replayed.status, 0) << replayed.err;
  EXPECT_EQ(replayed.out, outcome.out);
  EXPECT_THAT(outcome.out, HasSubstr(R"("isToolWanted":true)"));
  EXPECT_THAT(runHost({"replay", trace, "--cpu-factor", "0.01"}).out, Not(HasSubstr("threshold")));

  const Outcome refused = runHost({"record", trace});
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.err, HasSubstr("trace: File exists"));
}

TEST(Trace, ADiskThatTakesNothingEndsTheRecordingAlone) {
  for (const std::string command : {"watch --dry-run --json --record ", "record "}) {
    const TemporaryHome home;
    platform::ChildProcess watch(
        "/bin/sh",
        {"-c", "trap '' XFSZ; ulimit -f 4; exec " WAKELATCH_HOST_PROGRAM " " + command +
                   (home.path() / "trace").string() + " --interval 0.05"},
        platform::ChildOutput::captured);
    std::string told, ticks;
    const auto hasTold = [&](const std::string& text) {
      watch.awaitExit(0.05);
      told += watch.takeStandardError();
      ticks += watch.takeStandardOutput();
      return told.find(text) != std::string::npos;
    };
    const bool isWatch = command.starts_with("watch");
    EXPECT_TRUE(eventually([&] {
      return hasTold(isWatch ? "File too large; watching goes on" : "ended: File too large") &&
             (!isWatch || std::count(ticks.begin(), ticks.end(), '\n') > 5);
    }));
    if (isWatch) watch.send(SIGTERM);
    EXPECT_TRUE(watch.awaitExit(5));
    EXPECT_EQ(watch.reap().number, isWatch ? 0 : 1);
  }
}

TEST(Trace, WhatIsNoTraceIsNamed) {
  const TemporaryHome home;
  const fs::path file = home.path() / "trace";
  RandomMachine machine(1);
  const std::string header = Recorder(machine.sources(), {}).header({}, platform::now()) + "\n";
  std::string future = header;
  future.replace(future.find(":1,"), 3, ":9,");
  const std::pair<std::string, std::string> rows[] = {
      {"", "trace: is empty"},
      {"nonsense\n", "trace, line 1: "},
      {future, "trace: traceFormat 9 is not known here"},
      {header + "{\"ms\":1}\n{\"ms\":\"1\"}\n", "trace, line 3: ms: expected"},
      {header + R"({"ms":1,"cpu":{"x":1}})"
                "\n",
       "line 2: processes: \"x\" is no process number"}};
  for (const auto& [content, error] : rows) {
    writeFile(file, content);
    const Outcome outcome = runHost({"replay", file});
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.err, HasSubstr(error));
  }
}

TEST(Trace, MomentsAreFoundOnLocalClocks) {
  const Timestamp start(std::chrono::duration<double>(1'763'902'970));  // 13:02:50 UTC
  for (const double later : {0., 1., 59., 3600., 86'399.}) {
    const std::string clock = localTime(after(start, later));
    EXPECT_NEAR(secondsBetween(start, momentAfter(start, clock)), later + 0.999, 1e-6) << clock;
    EXPECT_EQ(localTime(momentAfter(start, clock.substr(0, 5))), clock.substr(0, 6) + "59");
  }
  EXPECT_EQ(momentAfter(start, "2025-11-23T13:02:50.250Z"), after(start, 0.25));
  for (const char* wrong : {"", "3", "24:00", "12:60", "1:2:3:4", "now"}) {
    EXPECT_THROW(momentAfter(start, wrong), std::runtime_error) << wrong;
  }
}

}  // namespace
}  // namespace wakelatch::host
