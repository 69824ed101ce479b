// The system tools that the library runs, answered from the kernel: the same command lines, the
// same output formats, no child process.
#pragma once

#include <filesystem>
#include <memory>

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

/// The lock of this process that keeps a closed lid from putting the machine to sleep. May be used
/// from any thread.
class LidLock {
 public:
  /// Takes it unless it is held. Throws as Logind::inhibit().
  void take(const Logind& logind);
  /// Lets go, and waits for up to a second until the session manager has seen it.
  void release(const Logind& logind);

  /// Whether the session manager lists such a lock, of this process or another one of ours; none
  /// where there is no session manager. Throws std::runtime_error when it does not answer.
  static bool isListed(const Logind& logind);

 private:
  platform::Mutex mutex_;
  platform::Descriptor lock_ WAKELATCH_GUARDED_BY(mutex_);
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
class LinuxTools : public CommandRunning {
 public:
  /// @param lidLock  shared by all that act for one process; none given: one of its own
  explicit LinuxTools(LinuxRoots roots = {},
                      std::shared_ptr<LidLock> lidLock = std::make_shared<LidLock>());

  /// Safe from several threads at once; process listings wait for each other, and the first takes
  /// ProcessTable::sampleSeconds. What the kernel does not tell is left out of the answer. Throws
  /// CommandRunnerError::nonZeroExit for a tool that fails, std::runtime_error naming the command
  /// for a command line that is not in the list.
  CommandResult run(const ShellCommand& command) override;

 private:
  const LinuxRoots roots_;
  const std::shared_ptr<LidLock> lidLock_;
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
