// Faults around the host: tools, files, home directories, streams and clocks that do what they
// should not. Every tick still gives a decision, nothing hangs, and the fault is named.
#include <gmock/gmock.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <future>

#include "Host/Observer.h"
#include "Host/SupportDirectory.h"
#include "Host/Terminal.h"
#include "Host/WatchState.h"
#include "Platform/SerialQueue.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/FileLogger.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

/// Sound tools, but for one that is a script, run with little time.
struct Machine : CommandRunning {
  const TemporaryHome home;
  std::string faulty;

  CommandResult run(const ShellCommand& command) override {
    const fs::path program = fs::path(command.executable).filename();
    if (program != faulty) return {0, program == "pmset" ? "Now drawing from 'AC Power'" : "", ""};
    return ProcessCommandRunner(0.5).run({home.path() / program, command.arguments});
  }
};

TEST(Faults, NoToolKeepsTheHostFromDeciding) {
  const std::pair<std::string, std::string> faults[] = {
      {"echo boom >&2; exit 3", "exit code 3: boom\n"},
      {"exec sleep 60", "exit code 15\n"},
      {"not executable", "Permission denied\n"},
      {"", "No such file or directory\n"},
      {"head -c 5000 /dev/urandom", ""},
      {":", ""},
      {"exec head -c 100000000 /dev/zero", " printed more than 16 MiB\n"}};
  const fs::path log = FileLogger::shared().logURL();
  for (const std::string tool : {"ps", "pmset", "ioreg", "osascript"}) {
    for (const auto& [body, error] : faults) {
      SCOPED_TRACE(tool + ": " + body);
      Machine machine;
      machine.faulty = tool;
      const fs::path script = machine.home.path() / tool;
      if (!body.empty()) writeScript(script, body);
      if (body == "not executable") fs::permissions(script, fs::perms::owner_read);
      const std::size_t start = contentOf(log).size();

      const Observation seen =
          Observer(MachineSources(machine).sources(), {}).look({}, platform::now());
      const auto decision =
          AgentStateMachine().evaluate(AppMode::manualKeepAwake, {}, seen.power, seen.lidState,
                                       seen.strongest, false, seen.thermalState, seen.at);
      EXPECT_THAT(decision.reason, HasSubstr(tool == "pmset" ? "level unavailable" : "Manual"));
      SleepController controller(machine, machine, FileLogger::shared(), "/bin/true");
      EXPECT_EQ(controller.engageLidClosedProtection(), tool != "osascript" || error.empty());
      EXPECT_TRUE(eventually([&log, start, &text = error] {
        return contentOf(log).find(text, start) != std::string::npos;
      }));
    }
  }
}

const std::vector<std::string> oneTick = {"watch", "--ticks", "1", "--caffeinate", "/bin/true"};

TEST(Faults, WhatStandsInAFilesPlaceIsNamedAndLeftAlone) {
  const auto fifo = [](const fs::path& file) { ASSERT_EQ(::mkfifo(file.c_str(), 0600), 0); };
  const auto huge = [](const fs::path& file) { std::ofstream(file).seekp(1U << 30) << '\n'; };
  const auto link = [](const fs::path& file) { fs::create_symlink("precious", file); };
  const struct {
    fs::path file;
    std::function<void(const fs::path&)> put;
    std::string notice;
    int watch = 0, status = 0;  ///< how these commands end
  } rows[] = {{"settings.json", fifo, "settings: not a regular file: ", 1, 1},
              {"settings.json", huge, "settings.json: File too large", 1, 1},
              {"usage.json", fifo, "usage: not a regular file: "},
              {"usage.json", huge, "usage.json: File too large; the file is left as it is"},
              {"watch.lock", fifo, "no lock file (remove it): ", 1},
              {"watch.lock", link, "no lock file (remove it): ", 1},
              {"../../Logs/Wakelatch.log", fifo, ""}};
  for (const auto& [file, put, notice, watch, status] : rows) {
    SCOPED_TRACE(file.string() + ": " + notice);
    const TemporaryHome home;
    const fs::path directory = supportDirectory(), precious = directory / "precious",
                   unfinished = directory / "usage.json.new-Ab12Cd";
    for (const fs::path& made : {precious, unfinished}) writeFile(made, "precious");
    fs::create_directories(home.path() / "Library/Logs");
    put(directory / file);
    EXPECT_EQ(runHost({"status"}).status, status);
    const bool isUsage = file == "usage.json";
    EXPECT_THAT(runHost({"doctor"}).out, HasSubstr(isUsage ? "PROBLEM  statistics: " : "ok  "));
    const Outcome outcome = runHost(oneTick);
    EXPECT_EQ(outcome.status, watch);
    EXPECT_THAT(outcome.err, HasSubstr(notice));
    EXPECT_EQ(contentOf(precious), "precious");
    EXPECT_EQ(fs::exists(unfinished), file == "watch.lock");
  }
}

TEST(Faults, AHomeThatCannotBeWrittenIsNamedAndWatchingGoesOn) {
  const TemporaryHome home;
  const char* const path = home.path().c_str();
  if (::mount("none", path, "tmpfs", MS_RDONLY, "size=64k") != 0) GTEST_SKIP() << "may not mount";
  const auto decided = HasSubstr(": ");  // whatever agents run on this machine
  EXPECT_THAT(runHost(oneTick).out, decided);
  EXPECT_EQ(::mount("none", path, "tmpfs", MS_REMOUNT, "size=64k"), 0);
  EXPECT_EQ(runHost(oneTick).status, 0);
  for (const fs::path& made : fs::recursive_directory_iterator(home.path())) {
    EXPECT_EQ(fs::status(made).permissions() & fs::perms(077), fs::perms::none) << made;
  }
  writeFile(home.path() / "filler", std::string(70'000, 'x'));
  for (const std::string fault : {"No space left on device", "Read-only file system"}) {
    const Outcome outcome = runHost(oneTick);
    EXPECT_THAT(outcome.out, decided);
    EXPECT_THAT(outcome.err,
                AllOf(HasSubstr("watch.json: " + fault), HasSubstr("usage.json: " + fault)));
    EXPECT_EQ(runHost({"restore"}).status, 0);
    EXPECT_EQ(::mount("none", path, "tmpfs", MS_REMOUNT | MS_RDONLY, ""), 0);
  }
  EXPECT_EQ(::umount(path), 0);
}

TEST(Faults, NothingOfAnotherUsersIsUsed) {
  constexpr uid_t user = 4242, stranger = 2424;
  if (::geteuid() != 0) GTEST_SKIP() << "root alone can be two users";
  const TemporaryDirectory directory;
  const fs::path own = directory.path() / "own", foreign = directory.path() / "foreign",
                 link = directory.path() / "link";
  for (const fs::path& file : {own, foreign}) writeFile(file, "precious");
  fs::create_symlink(own, link);
  fs::permissions(foreign, fs::perms::all);
  for (const fs::path& file : {own, directory.path()}) EXPECT_EQ(::chown(file.c_str(), user, 0), 0);
  for (const fs::path& file : {foreign, link}) EXPECT_EQ(::lchown(file.c_str(), stranger, 0), 0);
  ASSERT_EQ(::seteuid(user), 0);
  for (const fs::path& file : {foreign, link}) {
    EXPECT_ANY_THROW(platform::append(file, "x"));
    EXPECT_ANY_THROW(platform::readFile(file));
  }
  EXPECT_ANY_THROW(platform::createDirectories("/tmp"));
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(contentOf(own) + contentOf(foreign), "preciousprecious");
}

TEST(Faults, AClosedStreamGivesItsPlaceToNoFile) {
  const TemporaryHome home;
  platform::ChildProcess watch("/bin/sh",
                               {"-c", "exec " WAKELATCH_HOST_PROGRAM " watch --mode off 2>&-"},
                               platform::ChildOutput::captured);
  EXPECT_TRUE(eventually([] { return runningWatchState().has_value(); }));
  EXPECT_EQ(fs::read_symlink("/proc/" + std::to_string(watch.id()) + "/fd/2"), "/dev/null");
}

TEST(Faults, AClockThatIsSetDoesNotStretchTheGrace) {
  for (const double jump : {-3e8, -1e4, 1e4, 3e8}) {
    const Timestamp start = platform::now(), later = after(start, jump);
    AgentStateMachine machine({start, true, false});
    for (const double seconds : {0.0, 90.0}) {
      machine.forgetFuture(after(later, seconds));
      const auto decision = machine.evaluate(AppMode::watchAgentUI, {}, {true, {}, ""}, {}, {},
                                             false, {}, after(later, seconds));
      EXPECT_EQ(decision.shouldPreventSleep, jump < 0 && seconds == 0) << jump;
    }
  }
}

TEST(Faults, TextFromOutsideCannotCommandATerminal) {
  EXPECT_EQ(printable("\033[2J\nb\u009B\u202E\x9B\u2028é"), "�[2J�b����é");
}

TEST(Faults, AQueueDoesNotWaitForATaskThatHangs) {
  const auto goOn = std::make_shared<std::promise<void>>();
  const auto done = std::make_shared<std::promise<void>>();
  {
    platform::SerialQueue queue("test");
    queue.async([goOn] { goOn->get_future().wait(); });
    queue.async([done] { done->set_value(); });
  }
  goOn->set_value();
  done->get_future().wait();  // runs although the queue is gone
}

TEST(FaultsDeathTest, AForkDoesNotWaitForAThreadItHasNot) {
  std::optional<platform::SerialQueue> queue("test");
  queue->async([] {});
  EXPECT_EXIT((queue->drain(), queue.reset(), std::_Exit(0)), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace wakelatch::host
