// Replaces the macOS tools that the library runs: takes their command lines and gives their output
// formats, with answers from the kernel and the session manager, without child processes.
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

/// Where the kernel and the session manager are found; tests use other places.
struct LinuxRoots {
  std::filesystem::path proc = "/proc";
  std::filesystem::path powerSupply = "/sys/class/power_supply";
  std::filesystem::path lid = "/proc/acpi/button/lid";
  std::filesystem::path thermal = "/sys/class/thermal";
  Logind logind = {};
};

/// The session manager and this process's lid lock, shared by all runners of the process. Callable
/// from any thread. Calls block and throw as Logind's do, unless they say otherwise.
class LoginManager {
 public:
  /// After a call without an answer, all calls fail at once for this long, so that a watch that
  /// ends, or acts in danger, does not wait for each.
  static constexpr std::chrono::seconds silence{10};

  explicit LoginManager(Logind logind) : logind_(std::move(logind)) {}

  void suspend();

  /// Takes the lid lock, unless this process holds it: with it a closed lid does not put the
  /// machine to sleep.
  void takeLidLock();
  /// Releases the lid lock and waits up to a second until the session manager no longer lists it.
  /// Never fails.
  void releaseLidLock();
  /// Whether the session manager lists a lid lock under our name, of this process or another one.
  /// Without a session manager: whether this process holds one.
  bool isLidLocked();

 private:
  template <class Call>
  auto ask(const Call& call);

  const Logind logind_;
  platform::Mutex mutex_;
  platform::Descriptor lidLock_ WAKELATCH_GUARDED_BY(mutex_);
  std::chrono::steady_clock::time_point silentUntil_ WAKELATCH_GUARDED_BY(mutex_);
};

/// Answers these command lines only:
///
///     /bin/ps -axo pid=,ppid=,pcpu=,comm=    see ProcessTable
///     /bin/ps -axo pid=,args=
///     /bin/ps -p PID -o comm=                status 1 when there is no such process
///     /usr/bin/pmset -g batt                 see batteryReport()
///     /usr/sbin/ioreg -r -k AppleClamshellState -d 1
///     /usr/bin/pmset -g                      sleep is disabled while a lid lock is listed
///     /usr/bin/osascript -e ... disablesleep 1 ...   takes the lid lock
///     /usr/bin/osascript -e ... disablesleep 0 ...   releases the lid lock
///     /usr/bin/pmset -a disablesleep 0       releases the lid lock
///     /usr/bin/pmset sleepnow                suspends through logind
class LinuxTools : public SystemTools {
 public:
  explicit LinuxTools(const LinuxRoots& roots = {})
      : LinuxTools(roots, std::make_shared<LoginManager>(roots.logind)) {}
  /// @param manager  shared by all runners of the process; used in place of `roots.logind`
  LinuxTools(LinuxRoots roots, std::shared_ptr<LoginManager> manager);

  /// Callable from several threads at once; process listings wait for each other, and the first one
  /// takes ProcessTable::sampleSeconds. Values that the kernel does not provide are missing in the
  /// output. Throws CommandRunnerError::nonZeroExit if the tool fails, and std::runtime_error
  /// naming the command for any other command line.
  CommandResult run(const ShellCommand& command) override;

  /// See ProcessTable::setQuiet().
  void setQuiet(bool isQuiet) override { processes_.setQuiet(isQuiet); }

 private:
  const LinuxRoots roots_;
  const std::shared_ptr<LoginManager> manager_;
  ProcessTable processes_;
};

/// The output of `pmset -g batt`: the power source, then the battery's charge and state. Batteries
/// of peripherals do not count. Several batteries are shown as one, with their mean charge weighted
/// by capacity: readers take the first percentage, and one empty battery of two is no emergency.
/// Without a battery the machine is on AC power.
std::string batteryReport(const std::filesystem::path& powerSupply);

/// The line of `ioreg` that says whether the lid is closed; empty without a lid.
std::string lidReport(const std::filesystem::path& lid);

/// The worst state of all thermal zones, by the trip points that they have reached: "passive" is
/// fair, "hot" serious, "critical" critical. "active" (a fan starts) counts as nominal.
ThermalState thermalState(const std::filesystem::path& thermal);

}  // namespace wakelatch::host
