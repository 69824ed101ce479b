// The requests to the session manager, over a real message bus and a mock of the manager that is
// not ours. Tests/logind-real tries real ones.
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>

#include <future>

#include "Host/SystemTools.h"
#include "Host/linux/LinuxTools.h"
#include "Host/linux/WatchProcess.h"
#include "Platform/WatchedChild.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {
namespace {

using platform::ChildProcess, platform::ChildOutput, platform::WatchedChild;
using namespace std::string_literals;

/// The system bus of this process and its children, with python-dbusmock's session manager on it.
class SessionManager : TemporaryDirectory {
 public:
  SessionManager() {
    const std::string config = path() / "config", address = "unix:path=" + config + ".bus";
    writeFile(config, "<busconfig><listen>" + address +
                          "</listen><auth>EXTERNAL</auth>"
                          "<policy context='default'><allow send_destination='*'/>"
                          "<allow eavesdrop='true'/><allow own='*'/></policy></busconfig>");
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    const std::vector<std::string> options{"--nofork", "--config-file=" + config};
    daemon_.emplace("/usr/bin/dbus-daemon", options, ChildOutput::captured);
    while (sd_bus_open_system(&bus_) < 0 && !daemon_->awaitExit(0.01)) continue;
    const std::vector<std::string> mock{"-m", "dbusmock", "--system", "--template", "logind"};
    manager_.emplace("/usr/bin/python3", mock, ChildOutput::captured);
    EXPECT_TRUE(eventually([this] { return answers(); })) << manager_->takeStandardError();
  }
  ~SessionManager() {
    sd_bus_flush_close_unref(bus_);
    ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  }

  /// From now on a method of the manager runs this Python instead.
  void replace(const char* method, const char* in, const char* out, const char* code) {
    const int result =
        sd_bus_call_method(bus_, "org.freedesktop.login1", "/org/freedesktop/login1",
                           "org.freedesktop.DBus.Mock", "AddMethod", nullptr, nullptr, "sssss",
                           "org.freedesktop.login1.Manager", method, in, out, code);
    EXPECT_GE(result, 0) << method;
  }
  /// Refuses every lock but of the kinds that the Python expression grants.
  void grantOnlyIf(const std::string& condition) {
    const std::string code = "import os, dbus\nif not (" + condition +
                             "): raise dbus.exceptions.DBusException('not for you', "
                             "name='org.freedesktop.DBus.Error.AccessDenied')\n"
                             "ret = os.open('/dev/null', 0)";
    replace("Inhibit", "ssss", "h", code.c_str());
  }
  void hang() const { manager_->send(SIGSTOP); }
  void goOn() const { manager_->send(SIGCONT); }

  /// The locks that are held: "sleep:idle/block" and the like, separated by blanks.
  std::string locks() const {
    std::string all;
    for (const Inhibitor& lock : Logind().inhibitors())
      all += (all.empty() ? "" : " ") + lock.what + "/" + lock.mode;
    return all;
  }
  bool comesToHold(const std::string& expected) const {
    return eventually([&] { return locks() == expected; });
  }

 private:
  bool answers() const {
    try {
      return locks().empty();
    } catch (const std::runtime_error&) {
      return false;
    }
  }

  std::optional<ChildProcess> daemon_, manager_;
  sd_bus* bus_ = nullptr;
};

TEST(Caffeinate, HoldsItsLockUntilItEndsAndSaysSo) {
  const SessionManager manager;
  using Row = std::tuple<std::string, std::string, int>;
  for (const auto& [flags, what, signal] :
       {Row{"-dimsu", "sleep:idle/block", SIGTERM}, Row{"-ims", "sleep/block", SIGKILL}}) {
    const auto tool = WatchedChild::start(keepAwakeTool(), {flags}, ChildOutput::captured);
    EXPECT_EQ(tool->awaitWord(10), "ready");
    EXPECT_EQ(manager.locks(), what) << "the lid is not held shut by it";
    tool->send(signal);
    EXPECT_TRUE(manager.comesToHold("")) << signal;
  }
}

TEST(Caffeinate, EndsWithItsWatchAlsoWhileTheBusIsStuck) {
  const SessionManager manager;
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);  // who has lost its parent is this process's child then
  const std::string tool = keepAwakeTool().string() + " -ims >&2 & echo $!; wait";
  for (const std::string start : {"", "WAKELATCH_PID=$$ "})
    for (const bool isStuck : {false, true}) {
      if (isStuck) manager.hang();
      ChildProcess watch("/bin/sh", {"-c", start + tool}, ChildOutput::captured);
      EXPECT_TRUE(isStuck || manager.comesToHold("sleep/block"));
      EXPECT_FALSE(watch.awaitExit(0.3));
      watch.send(SIGKILL);
      watch.reap();
      const pid_t pid = std::stoi(watch.takeStandardOutput());
      EXPECT_TRUE(eventually([pid] { return ::waitpid(pid, nullptr, WNOHANG) == pid; }, 3));
      if (isStuck) manager.goOn();
      EXPECT_TRUE(manager.comesToHold("")) << start;
    }
  ::prctl(PR_SET_CHILD_SUBREAPER, 0);

  ChildProcess dead("/bin/true", {}, ChildOutput::inherited);
  dead.reap();
  ChildProcess late("/usr/bin/env",
                    {"WAKELATCH_PID=" + std::to_string(dead.id()), keepAwakeTool(), "-ims"},
                    ChildOutput::inherited);
  EXPECT_TRUE(late.awaitExit(3)) << "its watch was dead before it looked";
}

TEST(Caffeinate, AWatchThatStaysStoppedIsLost) {
  const ChildProcess watch("/bin/sleep", {"60"}, ChildOutput::inherited);
  using std::chrono::milliseconds, std::chrono::seconds;
  auto lost = std::async(std::launch::async, [&watch] {
    WatchProcess(watch.id()).awaitLoss({.stopped = seconds(1), .betweenLooks = milliseconds(20)});
  });
  for (const int signal : {SIGSTOP, SIGCONT, SIGSTOP}) {
    watch.send(signal);
    EXPECT_EQ(lost.wait_for(milliseconds(700)), std::future_status::timeout);
  }
  EXPECT_EQ(lost.wait_for(seconds(5)), std::future_status::ready);
}

TEST(Caffeinate, SaysWhatItCannotHoldAndWhy) {
  const auto run = [](const char* flags, double seconds = 10) {
    const auto tool = WatchedChild::start(keepAwakeTool(), {flags}, ChildOutput::captured);
    const auto word = tool->awaitWord(seconds);
    std::string said = word.value_or(tool->whyNoWord(seconds));
    tool->send(SIGKILL);
    return said;
  };
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
  EXPECT_EQ(run("-ims"), "no system bus: No such file or directory");
  EXPECT_EQ(run("-di"), "usage: caffeinate -dimsu | -ims");
  SessionManager manager;
  manager.hang();
  EXPECT_EQ(run("-ims", 1), "no answer within 1 s");
  manager.goOn();
  manager.grantOnlyIf("args[0] == 'idle'");
  EXPECT_TRUE(run("-dimsu").starts_with("without a session at this computer only sleep for want"));
  manager.grantOnlyIf("False");
  EXPECT_EQ(run("-ims"), "this needs a session at this computer (logind Inhibit: not for you)");
}

TEST(Caffeinate, DoctorBelievesItsWord) {
  const TemporaryHome home;
  const auto program = home.path() / "bin/wakelatch";
  std::filesystem::create_directories(program.parent_path());
  std::filesystem::copy_file(WAKELATCH_HOST_PROGRAM, program);
  const std::string problem = "PROBLEM  keep-awake tool: cannot keep this machine awake: ";
  for (const auto& [body, said] :
       {std::pair("echo ready; exec sleep 60", "ok       keep-awake tool: "s),
        std::pair("echo no bus >&2; exit 15", problem + "no bus\n"),
        std::pair("exec sleep 60", problem + "no answer within 5 s\n")}) {
    writeScript(home.path() / "libexec/wakelatch/caffeinate", body);
    ChildProcess doctor(program, {"doctor"}, ChildOutput::captured);
    EXPECT_TRUE(doctor.awaitExit(30));
    EXPECT_NE(doctor.takeStandardOutput().find(said), std::string::npos) << body;
  }
}

TEST(LinuxTools, SuspendsUnlessSomebodyElseHoldsItOff) {
  SessionManager manager;
  const auto suspend = [] { LinuxTools().run({"/usr/bin/pmset", {"sleepnow"}}); };
  const std::string self = std::to_string(::geteuid());
  for (const auto& [lock, why] : {
           std::pair("('sleep', 'Wakelatch', 'w', 'block', " + self + ", 1)", ""),
           std::pair("('sleep', 'backup', 'w', 'delay', 0, 1)"s, ""),
           std::pair("('shutdown:idle', 'backup', 'w', 'block', 0, 1)"s, ""),
           std::pair("('idle:sleep', 'backup', 'w', 'block', 0, 7)"s,
                     "exit code 1: held off by backup (process 7 of user 0): w"),
       }) {
    const std::string code = "ret = [" + lock + "]";
    manager.replace("ListInhibitors", "", "a(ssssuu)", code.c_str());
    std::string failure;
    try {
      suspend();
    } catch (const CommandRunnerError& error) {
      failure = error.what();
    }
    EXPECT_EQ(failure, why) << lock;
  }
  manager.replace("ListInhibitors", "", "a(ssssuu)", "ret = []");
  manager.replace("Suspend", "b", "", "if args[0]: raise Exception('asks for a password')");
  EXPECT_NO_THROW(suspend());
  manager.replace("Suspend", "b", "", "raise Exception('not now')");
  EXPECT_THROW(suspend(), CommandRunnerError);
}

TEST(LinuxTools, LidClosedModeIsALockOfTheProcess) {
  const TemporaryHome home;
  SessionManager manager;
  FileLogger logger(home.path() / "log");
  using State = SleepController::DisableSleepState;
  {
    LinuxTools tools;
    SleepController controller(tools, tools, logger, "/bin/true");
    EXPECT_EQ(controller.disableSleepState(), State::off);
    for (int i = 0; i < 2; ++i) {  // the second time its restore goes without a prompt
      EXPECT_TRUE(controller.engageLidClosedProtection());
      EXPECT_EQ(manager.locks(), "handle-lid-switch/block");
      EXPECT_EQ(controller.disableSleepState(), State::on);
      EXPECT_TRUE(i == 0 ? controller.releaseLidClosedProtection()
                         : controller.restoreLidClosedWithoutPrompt());
      EXPECT_EQ(manager.locks(), "");
    }
    controller.engageLidClosedProtection();
  }
  // As after a crash: the kernel has let go of the lock, the marker is still there.
  EXPECT_TRUE(manager.comesToHold(""));
  LinuxTools tools;
  SleepController next(tools, tools, logger, "/bin/true");
  EXPECT_TRUE(next.reconcileStuckDisableSleep());
  EXPECT_FALSE(std::filesystem::exists(SleepController::engagedMarkerURL()));
  manager.grantOnlyIf("False");
  EXPECT_FALSE(next.engageLidClosedProtection());

  // A manager that hangs: the lock goes all the same, and who asks again is not kept waiting.
  manager.grantOnlyIf("True");
  EXPECT_TRUE(next.engageLidClosedProtection());
  manager.hang();
  LinuxTools hasty({.logind = {.timeoutSeconds = 0.2}});
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i)
    EXPECT_THROW(hasty.run({"/usr/bin/pmset", {"-g"}}), CommandRunnerError);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
  manager.goOn();

  // Nor is it forgotten while the bus is away: a manager that comes back finds it.
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
  EXPECT_EQ(next.disableSleepState(), State::on);
  EXPECT_TRUE(next.restoreLidClosedWithoutPrompt());
}

}  // namespace
}  // namespace wakelatch::host
