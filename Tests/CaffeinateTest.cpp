// The requests to the session manager, over a real message bus and a small manager of our own.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <stdlib.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <mutex>
#include <thread>

#include "Host/SystemTools.h"
#include "Host/linux/LinuxTools.h"
#include "Platform/ChildProcess.h"
#include "TemporaryFolder.h"

namespace wakelatch::host {
namespace {

using platform::ChildOutput;
using platform::ChildProcess;
using testing::HasSubstr;

/// Whether `condition` comes true within ten seconds.
template <class Condition>
bool eventually(Condition condition) {
  for (int i = 0; i < 1000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

/// A message bus of its own, for the processes and calls that follow.
class Bus : TemporaryFolder {
 public:
  Bus() {
    std::ofstream(path() / "config")
        << "<busconfig><listen>" << address() << "</listen><auth>EXTERNAL</auth>"
        << "<policy context='default'><allow send_destination='*'/><allow eavesdrop='true'/><allow "
           "own='*'/></policy>"
        << "</busconfig>";
    daemon_.emplace("/usr/bin/dbus-daemon",
                    std::vector<std::string>{"--nofork", "--nopidfile",
                                             "--config-file=" + (path() / "config").string()},
                    ChildOutput::captured);
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address().c_str(), 1);
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(path() / "bus"); }));
  }
  ~Bus() { ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); }

  std::string address() const { return "unix:path=" + (path() / "bus").string(); }

 private:
  std::optional<ChildProcess> daemon_;
};

/// Stands for logind: gives out locks that it can see being dropped, and counts suspends.
class SessionManager {
 public:
  explicit SessionManager(const Bus& bus) {
    EXPECT_GE(sd_bus_new(&bus_), 0);
    sd_bus_set_address(bus_, bus.address().c_str());
    sd_bus_set_bus_client(bus_, 1);
    EXPECT_GE(sd_bus_start(bus_), 0);
    EXPECT_GE(sd_bus_request_name(bus_, "org.freedesktop.login1", 0), 0);
    sd_bus_add_object(bus_, nullptr, "/org/freedesktop/login1", answer, this);
    thread_ = std::thread([this] {
      while (!stopping_) {
        if (sd_bus_process(bus_, nullptr) <= 0) sd_bus_wait(bus_, 10'000);
      }
    });
  }
  ~SessionManager() {
    stopping_ = true;
    thread_.join();
    sd_bus_flush_close_unref(bus_);
  }

  /// "what/mode" of the lock that is held, "" without one.
  std::string heldLock() {
    const std::lock_guard lock(mutex_);
    pollfd end{.fd = lockEnd_.get(), .events = 0, .revents = 0};
    const bool dropped = ::poll(&end, 1, 0) == 1 && (end.revents & POLLHUP) != 0;
    return end.fd < 0 || dropped ? "" : lockedWhat_;
  }

  std::atomic<int> suspends = 0;
  std::atomic<bool> refuses = false;

 private:
  static int answer(sd_bus_message* call, void* self, sd_bus_error* error) {
    return static_cast<SessionManager*>(self)->answer(call, error);
  }
  int answer(sd_bus_message* call, sd_bus_error* error) {
    constexpr const char* manager = "org.freedesktop.login1.Manager";
    if (refuses) return sd_bus_error_set(error, SD_BUS_ERROR_ACCESS_DENIED, "not for you");
    if (sd_bus_message_is_method_call(call, manager, "Suspend") > 0) {
      int interactive = 1;
      sd_bus_message_read(call, "b", &interactive);
      if (interactive == 0) ++suspends;
      return sd_bus_reply_method_return(call, "");
    }
    if (sd_bus_message_is_method_call(call, manager, "Inhibit") <= 0) return 0;
    const char *what = nullptr, *who = nullptr, *why = nullptr, *mode = nullptr;
    sd_bus_message_read(call, "ssss", &what, &who, &why, &mode);
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) return -errno;
    const platform::Descriptor given(ends[1]);
    const std::lock_guard lock(mutex_);
    lockEnd_ = platform::Descriptor(ends[0]);
    lockedWhat_ = std::string(what) + "/" + mode;
    return sd_bus_reply_method_return(call, "h", given.get());
  }

  sd_bus* bus_ = nullptr;
  std::atomic<bool> stopping_ = false;
  std::thread thread_;
  std::mutex mutex_;
  platform::Descriptor lockEnd_;  ///< hangs up when the lock's last holder has gone
  std::string lockedWhat_;
};

TEST(Caffeinate, HoldsItsLockUntilItEnds) {
  const Bus bus;
  SessionManager manager(bus);
  const struct {
    const char* flags;
    const char* lock;
    int signal;
  } rows[] = {
      {"-dimsu", "sleep:handle-lid-switch:idle/block", SIGTERM},
      {"-ims", "sleep:handle-lid-switch/block", SIGTERM},
      {"-ims", "sleep:handle-lid-switch/block", SIGKILL},
      {"-dimsu", "sleep:handle-lid-switch:idle/block", SIGINT},
      {"-dimsu", "sleep:handle-lid-switch:idle/block", SIGHUP},
  };
  for (const auto& row : rows) {
    ChildProcess tool(keepAwakeTool(), {row.flags}, ChildOutput::inherited);
    EXPECT_TRUE(eventually([&] { return manager.heldLock() == row.lock; })) << manager.heldLock();
    EXPECT_THAT(LinuxTools()
                    .run({"/bin/ps", {"-p", std::to_string(tool.id()), "-o", "comm="}})
                    .standardOutput,
                testing::EndsWith("/caffeinate\n"));
    EXPECT_FALSE(tool.awaitExit(0.1)) << "it stays by itself";
    tool.send(row.signal);
    EXPECT_TRUE(tool.awaitExit(5));
    EXPECT_TRUE(eventually([&] { return manager.heldLock().empty(); })) << row.signal;
  }
}

TEST(Caffeinate, SaysWhyItCannotHoldALock) {
  const auto outcome = [](const char* flags) {
    ChildProcess tool(keepAwakeTool(), {flags}, ChildOutput::captured);
    EXPECT_TRUE(tool.awaitExit(20));
    const int status = tool.reap().value_or(-1);
    return std::to_string(status) + " " + tool.takeStandardError();
  };
  const std::string failure = "1 caffeinate: cannot keep this system awake: ";
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/bus", 1);
  EXPECT_EQ(outcome("-ims"), failure + "no system bus: No such file or directory\n");
  const Bus bus;
  EXPECT_THAT(outcome("-ims"), HasSubstr(failure + "logind Inhibit: The name org.freedesktop"));
  SessionManager manager(bus);
  manager.refuses = true;
  EXPECT_EQ(outcome("-dimsu"), failure + "logind Inhibit: not for you\n");
  EXPECT_THAT(outcome("-di"), HasSubstr("2 usage: "));
}

TEST(LinuxTools, SuspendsThroughTheSessionManager) {
  const Bus bus;
  SessionManager manager(bus);
  LinuxTools tools({.logind = {.busAddress = bus.address()}});
  const ShellCommand sleepNow{"/usr/bin/pmset", {"sleepnow"}};
  EXPECT_EQ(tools.run(sleepNow), CommandResult{});
  EXPECT_EQ(manager.suspends, 1);
  manager.refuses = true;
  try {
    tools.run(sleepNow);
    FAIL() << "a refusal is a failure";
  } catch (const CommandRunnerError& error) {
    EXPECT_EQ(error.result(), (CommandResult{1, "", "logind Suspend: not for you"}));
  }
}

}  // namespace
}  // namespace wakelatch::host
