// The system tools that the library runs, answered from the kernel: the same command lines, the
// same output formats, no child process.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <utility>

#include "Host/SystemTools.h"
#include "Host/linux/LinuxToolsProcesses.h"
#include "Host/linux/Logind.h"
#include "Platform/Descriptor.h"
#include "Platform/Mutex.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/ShellCommand.h"

namespace wakelatch::host {

/// Where the kernel and the session manager are read; other places for tests.
struct LinuxRoots {
  std::filesystem::path proc = "/proc";
  std::filesystem::path powerSupply = "/sys/class/power_supply";
  std::filesystem::path lid = "/proc/acpi/button/lid";
  std::filesystem::path thermal = "/sys/class/thermal";
  Logind logind = {};
};

/// The session manager as all runners of a process share it. May be used from any thread. Each call
/// throws as Logind's do.
class LoginManager {
 public:
  /// After a call without an answer, all others fail at once for this long, so that a watch that
  /// ends or acts in danger need not wait for each.
  static constexpr std::chrono::seconds silence{10};

  explicit LoginManager(Logind logind) : logind_(std::move(logind)) {}

  void suspend();

  /// Takes this process's lock that keeps a closed lid from putting the machine to sleep, unless it
  /// is held already.
  void takeLidLock();
  /// Lets go of it, which never fails, and waits for up to a second until that is seen.
  void releaseLidLock();
  /// Whether such a lock is listed, of this process or another one of ours; while there is no
  /// session manager, whether this process holds one.
  bool isLidLocked();

 private:
  template <class Call>
  auto ask(const Call& call);

  const Logind logind_;
  platform::Mutex mutex_;
  platform::Descriptor lidLock_ WAKELATCH_GUARDED_BY(mutex_);
  std::chrono::steady_clock::time_point silentUntil_ WAKELATCH_GUARDED_BY(mutex_);
};

/// Answers these command lines and no other:
///
///     /bin/ps -axo pid=,ppid=,pcpu=,comm=    see ProcessTable
///     /bin/ps -axo pid=,args=
///     /bin/ps -p PID -o comm=                status 1 when there is no such process
///     /usr/bin/pmset -g batt                 see batteryReport()
///     /usr/sbin/ioreg -r -k AppleClamshellState -d 1
///     /usr/bin/pmset -g                      sleep is disabled while a lid lock is listed
///     /usr/bin/osascript -e ... disablesleep 1 ...   takes the lid lock
///     /usr/bin/osascript -e ... disablesleep 0 ...   lets it go
///     /usr/bin/pmset -a disablesleep 0       lets it go as well
///     /usr/bin/pmset sleepnow                suspends through logind
class LinuxTools : public SystemTools {
 public:
  explicit LinuxTools(const LinuxRoots& roots = {})
      : LinuxTools(roots, std::make_shared<LoginManager>(roots.logind)) {}
  /// @param manager  shared by all that act for one process; asked in place of `roots.logind`
  LinuxTools(LinuxRoots roots, std::shared_ptr<LoginManager> manager);

  /// Safe from several threads at once; process listings wait for each other, and the first takes
  /// ProcessTable::sampleSeconds. What the kernel does not tell is left out of the answer. Throws
  /// CommandRunnerError::nonZeroExit for a tool that fails, std::runtime_error naming the command
  /// for a command line that is not in the list.
  CommandResult run(const ShellCommand& command) override;

  /// See ProcessTable::setQuiet().
  void setQuiet(bool isQuiet) override { processes_.setQuiet(isQuiet); }

 private:
  const LinuxRoots roots_;
  const std::shared_ptr<LoginManager> manager_;
  ProcessTable processes_;
};

/// What `pmset -g batt` prints: where the power comes from, then the battery's charge and state.
/// Batteries of peripherals do not count. Several batteries are one, its charge weighted by their
/// capacities: a reader takes the first percentage, and one empty battery of two is no emergency.
/// Without a battery the machine is on AC power.
std::string batteryReport(const std::filesystem::path& powerSupply);

/// The line of `ioreg` that tells whether the lid is closed; empty without a lid.
std::string lidReport(const std::filesystem::path& lid);

/// The worst state of any thermal zone, by the trip points it has reached: "passive" is fair, "hot"
/// serious, "critical" critical. Fans starting ("active") are no sign of trouble.
ThermalState thermalState(const std::filesystem::path& thermal);

}  // namespace wakelatch::host
