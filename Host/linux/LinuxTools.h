// The system tools that the library runs, answered from the kernel: the same command lines, the
// same output formats, no child process.
#pragma once

#include <filesystem>

#include "Host/linux/LinuxToolsProcesses.h"
#include "Host/linux/Logind.h"
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

/// Answers these command lines and no other:
///
///     /bin/ps -axo pid=,ppid=,pcpu=,comm=    see ProcessTable
///     /bin/ps -axo pid=,args=
///     /bin/ps -p PID -o comm=                status 1 when there is no such process
///     /usr/bin/pmset -g batt                 see batteryReport()
///     /usr/sbin/ioreg -r -k AppleClamshellState -d 1
///     /usr/bin/pmset -g                      sleep is never disabled: Linux has no such setting
///     /usr/bin/pmset -a disablesleep 0       so this has nothing to do
///     /usr/bin/pmset sleepnow                suspends through logind
///     /usr/bin/osascript ...                 fails: there is no administrator prompt
class LinuxTools : public CommandRunning {
 public:
  explicit LinuxTools(LinuxRoots roots = {});

  /// Safe from several threads at once; process listings wait for each other, and the first takes
  /// ProcessTable::sampleSeconds. What the kernel does not tell is left out of the answer. Throws
  /// CommandRunnerError::nonZeroExit for a tool that fails, std::runtime_error naming the command
  /// for a command line that is not in the list.
  CommandResult run(const ShellCommand& command) override;

 private:
  const LinuxRoots roots_;
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
