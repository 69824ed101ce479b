#include "Host/linux/LinuxTools.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
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

void LidLock::take(const Logind& logind) {
  const platform::MutexLock guard(mutex_);
  if (lock_.get() < 0) lock_ = platform::Descriptor(logind.inhibit("handle-lid-switch"));
}

void LidLock::release(const Logind& logind) {
  {
    const platform::MutexLock guard(mutex_);
    lock_.close();
  }
  constexpr int looks = 20;
  constexpr std::chrono::milliseconds pause(50);
  try {
    for (int i = 0; i < looks && isListed(logind); ++i) std::this_thread::sleep_for(pause);
  } catch (const std::runtime_error&) {
    // The kernel has closed it, whether or not the session manager answers.
  }
}

bool LidLock::isListed(const Logind& logind) try {
  const auto all = logind.inhibitors();
  return std::any_of(all.begin(), all.end(), [](const Inhibitor& lock) {
    return lock.who == Logind::who && lock.holdsOff("handle-lid-switch");
  });
} catch (const NoSessionManager&) {
  return false;
}

LinuxTools::LinuxTools(LinuxRoots roots, std::shared_ptr<LidLock> lidLock)
    : roots_(std::move(roots)), lidLock_(std::move(lidLock)), processes_(roots_.proc) {}

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
  try {
    if (is("/usr/bin/pmset -g")) {
      const bool isDisabled = LidLock::isListed(roots_.logind);
      return printed(std::string("System-wide power settings:\n SleepDisabled\t\t") +
                     (isDisabled ? "1\n" : "0\n"));
    }
    if (is("/usr/bin/pmset sleepnow")) {
      roots_.logind.suspend();
      return printed("");
    }
    const bool isScript = command.executable == "/usr/bin/osascript";
    if (isScript && line.find("disablesleep 1") != line.npos) {
      lidLock_->take(roots_.logind);
      return printed("");
    }
    if (is("/usr/bin/pmset -a disablesleep 0") ||
        (isScript && line.find("disablesleep 0") != line.npos)) {
      lidLock_->release(roots_.logind);
      return printed("");
    }
  } catch (const std::runtime_error& error) {
    fail(error.what());
  }
  throw std::runtime_error("no stand-in on this system for: " + line);
}

}  // namespace wakelatch::host
