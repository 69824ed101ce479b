#include "WakelatchCore/SleepController.h"

#include <gmock/gmock.h>
#include <signal.h>
#include <unistd.h>

#include <future>
#include <sstream>

#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch {
namespace {

namespace fs = std::filesystem;
using host::contentOf, host::eventually;
using ::testing::ElementsAre, ::testing::StartsWith;

bool isGone(std::int32_t id) {
  return ::kill(id, 0) != 0;
}

/// A controller with a home of its own, a keep-awake tool and scripted commands.
struct Fixture {
  struct Runner : CommandRunning {
    Runner(Fixture& owner, std::string name) : fixture(owner), prefix(std::move(name)) {}
    CommandResult run(const ShellCommand& command) override {
      std::string text = prefix + command.executable;
      for (const auto& argument : command.arguments) text += " " + argument;
      const std::optional<std::string> output = fixture.answer(text);
      if (!output) throw CommandRunnerError::nonZeroExit({1, "", "no"});
      return {0, *output, ""};
    }
    Fixture& fixture;
    const std::string prefix;
  };

  TemporaryHome home;
  /// What a command prints; nothing when it fails.
  std::function<std::optional<std::string>(const std::string&)> answer = [](auto&) { return ""; };
  Runner runner{*this, ""}, adminRunner{*this, "admin "};
  const fs::path tool = home.path() / "caffeinate", log = home.path() / "log";
  std::optional<FileLogger> logger{log};
  std::optional<SleepController> controller;

  Fixture() {
    makeTool("");
    controller.emplace(runner, adminRunner, *logger, tool.string());
  }

  /// From now on a keep-awake process says what it was started with once it is ready for signals.
  void makeTool(const std::string& prelude) {
    host::writeScript(tool, prelude + "\nprintf %s $1 >~/new\nmv ~/new ~/$$\nexec sleep 60");
  }

  /// Without lid-closed mode.
  bool enable(bool letDisplaySleep) {
    return controller->setSleepPrevention(true, /*allowLidClosed=*/false, letDisplaySleep);
  }

  /// Starts a keep-awake process and returns its id once it is ready for signals.
  std::int32_t start(bool letDisplaySleep) {
    EXPECT_TRUE(enable(letDisplaySleep));
    const std::int32_t id = SleepController::readCaffeinatePIDs().at(0);
    const fs::path ready = home.path() / std::to_string(id);
    EXPECT_TRUE(eventually([&] { return fs::exists(ready); }));
    EXPECT_EQ(contentOf(ready), letDisplaySleep ? "-ims" : "-dimsu");
    EXPECT_EQ(controller->appliedLetDisplaySleep(), letDisplaySleep);
    return id;
  }

  /// Destroys the controller and returns all that was logged.
  std::vector<std::string> endAndReadLog() {
    controller.reset();
    logger.reset();
    std::vector<std::string> messages;
    std::istringstream lines(contentOf(log));
    for (std::string line; std::getline(lines, line);) messages.push_back(line.substr(23));
    return messages;
  }
};

TEST(SleepController, StartsOneProcessAndStopsIt) {
  Fixture fixture;
  const std::int32_t id = fixture.start(false);
  EXPECT_EQ(fixture.start(false), id);
  const fs::path file = SleepController::pidFileURL();
  EXPECT_EQ(contentOf(file), std::to_string(id) + "\n");
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_TRUE(fixture.controller->isSleepPreventionEnabled());
  EXPECT_TRUE(fixture.controller->restoreNormalSleep());
  EXPECT_TRUE(isGone(id) && !fs::exists(file));
  EXPECT_FALSE(fixture.controller->isSleepPreventionEnabled());
  EXPECT_EQ(fixture.controller->appliedLetDisplaySleep(), std::nullopt);

  fixture.controller->adoptDisableSleepEngaged();
  const std::string second = std::to_string(fixture.start(true)), first = std::to_string(id);
  EXPECT_THAT(fixture.endAndReadLog(),
              ElementsAre("Started caffeinate pid " + first, "Stopped caffeinate pid " + first,
                          "Started caffeinate pid " + second, "Stopped caffeinate pid " + second));
  EXPECT_TRUE(!fs::exists(file) && fs::exists(SleepController::engagedMarkerURL()));
}

TEST(SleepController, AnotherPostureStartsAnewAndRetiresTheOldProcess) {
  Fixture fixture;
  fixture.makeTool("trap '' TERM");
  const std::int32_t old = fixture.start(false);
  fixture.makeTool("");
  auto changing = std::async(std::launch::async, [&] { return fixture.enable(true); });
  EXPECT_TRUE(eventually([] { return SleepController::readCaffeinatePIDs().size() == 2; }));
  const std::int32_t next = SleepController::readCaffeinatePIDs().at(0);
  EXPECT_EQ(fixture.controller->appliedLetDisplaySleep(), true) << "the lock is free meanwhile";
  EXPECT_EQ(changing.wait_for(std::chrono::seconds(2)), std::future_status::timeout);
  EXPECT_TRUE(changing.get() && isGone(old));
  EXPECT_EQ(fixture.start(true), next);
  EXPECT_THAT(SleepController::readCaffeinatePIDs(), ElementsAre(next));
  const std::string first = std::to_string(old), second = std::to_string(next);
  EXPECT_THAT(
      fixture.endAndReadLog(),
      ElementsAre("Started caffeinate pid " + first, "Started caffeinate pid " + second,
                  "Retired previous caffeinate pid " + first + " after a display-posture change",
                  "Stopped caffeinate pid " + second));
}

TEST(SleepController, LogsOneLaunchFailureAStreakAndKeepsTheOldProcess) {
  Fixture fixture;
  fs::remove(fixture.tool);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(fixture.enable(false));
  EXPECT_FALSE(fixture.controller->isSleepPreventionEnabled());
  fixture.makeTool("");
  fixture.start(false);
  fs::remove(fixture.tool);
  for (int i = 0; i < 3; ++i) fixture.enable(true);
  EXPECT_TRUE(fixture.controller->isSleepPreventionEnabled());
  EXPECT_EQ(fixture.controller->appliedLetDisplaySleep(), false);
  const std::string failure = "Failed to start caffeinate: cannot start " + fixture.tool.string() +
                              ": No such file or directory — retrying each tick, logging once";
  EXPECT_THAT(fixture.endAndReadLog(),
              ElementsAre(failure, StartsWith("Started"), failure, StartsWith("Stopped")));
}

TEST(SleepController, EndsOrphansThatAreKeepAwakeTools) {
  Fixture fixture;
  const std::string orphan = std::to_string(fixture.start(false)), own = std::to_string(::getpid());
  fixture.answer = [&](const std::string& command) -> std::optional<std::string> {
    if (command == "/bin/ps -p 77 -o comm=") return std::nullopt;
    return command == "/bin/ps -p " + own + " -o comm=" ? "a test\n" : "/usr/bin/Caffeinate\n";
  };
  // 0 stands for the whole process group of this test.
  platform::writeAtomically(SleepController::pidFileURL(), own + "\n77\n0\n" + orphan + "\n");
  fixture.controller->reconcileOrphanedCaffeinate();
  EXPECT_TRUE(eventually([&] { return isGone(std::stoi(orphan)); }));
  EXPECT_FALSE(fs::exists(SleepController::pidFileURL()));
}

TEST(SleepController, ReadsIdsLineByLine) {
  EXPECT_THAT(SleepController::parseCaffeinatePIDs(
                  "123\n\n\u00a0456 \r\nabc\n2147483648\n-7\v1 2\u2028+5\n+-5\n-\n1.0\n2147483647"),
              ElementsAre(123, 456, -7, 5, 2147483647));
  const TemporaryHome home;
  writeFile(SleepController::pidFileURL(), "8\n\xFF");
  EXPECT_THAT(SleepController::readCaffeinatePIDs(), ElementsAre()) << "no UTF-8";
}

TEST(SleepController, ReadsWhetherSleepIsDisabled) {
  for (const char* text : {" SleepDisabled\t\t1", "a\n\n\tSleepDisabled 0 1\nSleepDisabled 0"})
    EXPECT_TRUE(SleepController::parseSleepDisabled(text)) << text;
  for (const char* text :
       {"SleepDisabled 0", "sleep 1", "SleepDisabled 0\nSleepDisabled 1", "", "SleepDisabled",
        "SleepDisabled 1 (by root)", "sleepdisabled 1", "a SleepDisabled 1", "SleepDisabled 1\r\n"})
    EXPECT_FALSE(SleepController::parseSleepDisabled(text)) << text;
}

// What each operation of the lid-closed setting runs, logs, returns and leaves behind. Of a message
// its first word is told here; its text is the crash matrix's.
TEST(SleepController, LidClosedOperations) {
  const std::string table =
      R"(
engage=admin /usr/bin/osascript -e do shell script "pmset -a disablesleep 1" with prompt "Lumenhold is turning on the lid-closed power setting (pmset disablesleep 1) so the Mac can stay awake with the lid closed. It is restored when lid-closed mode ends." with administrator privileges
restore=admin /usr/bin/osascript -e do shell script "pmset -a disablesleep 0" with prompt "Lumenhold is restoring the normal sleep setting (pmset disablesleep 0)." with administrator privileges
direct=/usr/bin/pmset -a disablesleep 0
read=/usr/bin/pmset -g
sleep=/usr/bin/pmset sleepnow
)";
  using C = SleepController;
  const auto engage = [](C& c) { return c.engageLidClosedProtection(); };
  const auto twice = [&](C& c) { return engage(c) && engage(c); };
  const auto restore = [](C& c) { return c.adoptDisableSleepEngaged(), c.restoreNormalSleep(); };
  const auto retry = [&](C& c) { return restore(c) || c.restoreNormalSleep(); };
  const auto check = [](C& c) { return c.reconcileStuckDisableSleep(); };
  const auto stuck = [&](C& c) {
    writeFile(C::engagedMarkerURL(), "");
    return check(c);
  };
  const auto rescue = [](C& c) { return c.emergencyRestore(), true; };
  const auto sleep = [](C& c) { return c.sleepNow(), true; };
  const auto ask = [](C& c) {
    return c.adoptDisableSleepEngaged(),
           c.reconcileLidClosedProtection() == C::DisableSleepState::off;
  };
  const std::string on = "SleepDisabled 1", off = "SleepDisabled 0", blank = " \n\u2028",
                    direct = "restore direct read ", failed = "Restoring Admin WARNING: ";
  const struct {
    const char* name;
    std::function<bool(C&)> operation;
    std::string failing, reading;  ///< commands that fail; what the setting is read as
    bool result, isEngaged;        ///< engaged: both the flag and the marker
    std::string commands, messages;
  } rows[] = {
      {"engage twice", twice, "", on, true, true, "engage ", "Engaging "},
      {"declined", engage, "engage", off, false, false, "engage ", "Engaging Lid-closed "},
      {"restore", restore, "", on, true, false, "restore ", "Restoring "},
      {"off already", restore, "restore direct", off, true, false, direct, "Restoring Admin "},
      {"still on, retried", retry, "restore", on, false, true, direct + direct, failed + failed},
      {"no answer", restore, "restore read", off, false, true, direct, failed},
      {"blank answer", restore, "restore", blank, false, true, direct, failed},
      {"no marker", check, "", on, true, false, "", ""},
      {"stale marker", stuck, "", off, true, false, "read ", "Stale "},
      {"stuck", stuck, "", on, true, false, "read restore ", "disablesleep Restoring "},
      {"still stuck", stuck, "restore read", off, false, true, "read " + direct,
       "disablesleep " + failed},
      {"asked: off", ask, "", off, true, false, "read ", ""},
      {"asked: no answer", ask, "read", off, false, true, "read ", ""},
      {"emergency", rescue, "", off, true, false, "restore ", "Emergency Restoring "},
      {"sleep now", sleep, "", on, true, false, "sleep ", "Requesting "},
      {"no sleep", sleep, "sleep", on, true, false, "sleep ", "Requesting pmset "}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Fixture fixture;
    std::string ran, logged;
    fixture.answer = [&](const std::string& command) {
      const std::size_t end = table.find("=" + command + "\n"), start = table.rfind('\n', end) + 1;
      const std::string name = table.substr(start, end - start);
      ran += name + " ";
      return row.failing.find(name) != std::string::npos ? std::nullopt
                                                         : std::optional(row.reading);
    };
    EXPECT_EQ(row.operation(*fixture.controller), row.result);
    EXPECT_EQ(fixture.controller->isLidClosedProtectionEngaged(), row.isEngaged);
    EXPECT_EQ(fs::exists(C::engagedMarkerURL()), row.isEngaged);
    EXPECT_EQ(ran, row.commands);
    for (const auto& message : fixture.endAndReadLog())
      logged += message.substr(0, message.find(' ') + 1);
    EXPECT_EQ(logged, row.messages);
  }
}

}  // namespace
}  // namespace wakelatch
