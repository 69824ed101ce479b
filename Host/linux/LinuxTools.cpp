#include "Host/linux/LinuxTools.h"

#include <exception>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

namespace wakelatch::host {
namespace {

CommandResult printed(std::string text) {
  return {.exitCode = 0, .standardOutput = std::move(text), .standardError = {}};
}

[[noreturn]] void fail(std::string message) {
  throw CommandRunnerError::nonZeroExit(
      {.exitCode = 1, .standardOutput = {}, .standardError = std::move(message)});
}

}  // namespace

LinuxTools::LinuxTools(LinuxRoots roots) : roots_(std::move(roots)), processes_(roots_.proc) {}

CommandResult LinuxTools::run(const ShellCommand& command) {
  std::string line = command.executable;
  for (const std::string& argument : command.arguments) line += " " + argument;
  const auto is = [&](std::string_view known) { return line == known; };

  if (is("/bin/ps -axo pid=,ppid=,pcpu=,comm=")) return printed(processes_.usageListing());
  if (is("/bin/ps -axo pid=,args=")) return printed(processes_.argumentListing());
  if (command.arguments.size() == 4 && is("/bin/ps -p " + command.arguments[1] + " -o comm=")) {
    const std::optional<std::string> name = processes_.programName(command.arguments[1]);
    if (!name) fail("");
    return printed(*name + "\n");
  }
  if (is("/usr/bin/pmset -g batt")) return printed(batteryReport(roots_.powerSupply));
  if (is("/usr/sbin/ioreg -r -k AppleClamshellState -d 1")) return printed(lidReport(roots_.lid));
  if (is("/usr/bin/pmset -g")) return printed("System-wide power settings:\n SleepDisabled\t\t0\n");
  if (is("/usr/bin/pmset -a disablesleep 0")) return printed("");
  if (is("/usr/bin/pmset sleepnow")) {
    try {
      roots_.logind.suspend();
    } catch (const std::exception& error) {
      fail(error.what());
    }
    return printed("");
  }
  if (command.executable == "/usr/bin/osascript") {
    fail("lid-closed mode through an administrator prompt exists on macOS only");
  }
  throw std::runtime_error("no stand-in on this system for: " + line);
}

}  // namespace wakelatch::host
