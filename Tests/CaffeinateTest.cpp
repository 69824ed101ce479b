// The requests to the session manager, over a real message bus and a small manager of our own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <systemd/sd-bus.h>

#include <future>

#include "Host/SystemTools.h"
#include "Host/linux/LinuxTools.h"
#include "Host/linux/WatchProcess.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

using platform::ChildProcess, platform::ChildOutput;

/// The system bus of this process and its children, with a manager on it that gives out locks.
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
    EXPECT_GE(sd_bus_request_name(bus_, "org.freedesktop.login1", 0), 0);
    sd_bus_add_object(bus_, nullptr, "/org/freedesktop/login1", answer, this);
  }
  ~SessionManager() {
    sd_bus_flush_close_unref(bus_);
    ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  }

  /// Waits for the next request, answers it and tells it: "Suspend" or "<what>/<mode>".
  std::string serve() {
    for (request_.clear(); request_.empty();)
      if (sd_bus_process(bus_, nullptr) == 0) sd_bus_wait(bus_, UINT64_MAX);
    return request_;
  }

  /// Whether the last lock given out is dropped within the time.
  bool lockIsDropped(int milliseconds) const {
    pollfd end{.fd = lockEnd_.get(), .events = 0, .revents = 0};
    return ::poll(&end, 1, milliseconds) == 1 && (end.revents & POLLHUP) != 0;
  }

  bool refuses = false;

 private:
  static int answer(sd_bus_message* call, void* manager, sd_bus_error* error) {
    auto& self = *static_cast<SessionManager*>(manager);
    const char *what = "", *mode = "";
    int interactive = 1, ends[2] = {-1, -1};
    self.request_ = sd_bus_message_get_member(call);
    if (self.refuses) return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "not for you");
    if (self.request_ == "Suspend") {
      sd_bus_message_read(call, "b", &interactive);
      if (interactive != 0) self.request_ = "asks for a password";
      return sd_bus_reply_method_return(call, "");
    }
    sd_bus_message_read(call, "ssss", &what, nullptr, nullptr, &mode);
    self.request_ = std::string(what) + "/" + mode;
    if (::pipe2(ends, O_CLOEXEC) != 0) return -errno;
    self.lockEnd_ = platform::Descriptor(ends[0]);
    return sd_bus_reply_method_return(call, "h", platform::Descriptor(ends[1]).get());
  }

  std::optional<ChildProcess> daemon_;
  sd_bus* bus_ = nullptr;
  std::string request_;
  platform::Descriptor lockEnd_;  ///< hangs up when the lock's last holder has gone
};

TEST(Caffeinate, HoldsItsLockUntilItEnds) {
  SessionManager manager;
  const std::string system = "sleep:handle-lid-switch", display = system + ":idle";
  using Row = std::tuple<std::string, std::string, int>;
  for (const auto& [flags, what, signal] :
       {Row{"-dimsu", display, SIGTERM}, Row{"-ims", system, SIGKILL}}) {
    ChildProcess tool(keepAwakeTool(), {flags}, ChildOutput::inherited);
    EXPECT_EQ(manager.serve(), what + "/block");
    EXPECT_FALSE(manager.lockIsDropped(100));
    tool.send(signal);
    EXPECT_TRUE(manager.lockIsDropped(10'000)) << signal;
  }
}

TEST(Caffeinate, EndsWithItsWatchAlsoWhileTheBusIsStuck) {
  SessionManager manager;
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);  // who has lost its parent is this process's child then
  const std::string tool = keepAwakeTool().string() + " -ims & echo $!; wait";
  for (const std::string start : {"", "WAKELATCH_PID=$$ "})
    for (const bool isStuck : {false, true}) {
      ChildProcess watch("/bin/sh", {"-c", start + tool}, ChildOutput::captured);
      EXPECT_TRUE(isStuck || !manager.serve().empty());
      EXPECT_FALSE(watch.awaitExit(0.3));
      watch.send(SIGKILL);
      EXPECT_TRUE(isStuck || manager.lockIsDropped(3'000)) << start;
      watch.reap();
      const pid_t pid = std::stoi(watch.takeStandardOutput());
      EXPECT_TRUE(eventually([pid] { return ::waitpid(pid, nullptr, WNOHANG) == pid; }, 3));
      if (isStuck) manager.serve();
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

TEST(Caffeinate, SaysWhyItCannotHoldALock) {
  const auto run = [](const char* flags, SessionManager* manager = nullptr) {
    ChildProcess tool(keepAwakeTool(), {flags}, ChildOutput::captured);
    if (manager != nullptr) manager->serve();
    tool.awaitExit(10);
    return std::to_string(tool.reap().number) + " " + tool.takeStandardError();
  };
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
  const std::string failure = "1 caffeinate: cannot keep this system awake: ";
  EXPECT_EQ(run("-ims"), failure + "no system bus: No such file or directory\n");
  EXPECT_EQ(run("-di"), "2 usage: caffeinate -dimsu | -ims\n");
  SessionManager manager;
  manager.refuses = true;
  EXPECT_EQ(run("-dimsu", &manager), failure + "logind Inhibit: not for you\n");
}

TEST(Caffeinate, DoctorBelievesOneThatRanUntilItsSignal) {
  const TemporaryHome home;
  const auto program = home.path() / "bin/wakelatch";
  std::filesystem::create_directories(program.parent_path());
  std::filesystem::copy_file(WAKELATCH_HOST_PROGRAM, program);
  for (const auto& [body, said] : {std::pair("exec sleep 60", "ok       keep-awake tool"),
                                   std::pair("exit 15", "PROBLEM  keep-awake tool")}) {
    writeScript(home.path() / "libexec/wakelatch/caffeinate", body);
    ChildProcess doctor(program, {"doctor"}, ChildOutput::captured);
    EXPECT_TRUE(doctor.awaitExit(30));
    EXPECT_NE(doctor.takeStandardOutput().find(said), std::string::npos) << body;
  }
}

TEST(LinuxTools, SuspendsThroughTheSessionManager) {
  SessionManager manager;
  const auto suspend = [&manager] {
    const ShellCommand command{"/usr/bin/pmset", {"sleepnow"}};
    auto answer = std::async(std::launch::async, [&] { return LinuxTools().run(command); });
    EXPECT_EQ(manager.serve(), "Suspend");
    return answer.get();
  };
  EXPECT_EQ(suspend(), CommandResult{});
  manager.refuses = true;
  EXPECT_THROW(suspend(), CommandRunnerError);
}

}  // namespace
}  // namespace wakelatch::host
