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

template <class Call>
auto LoginManager::ask(const Call& call) {
  {
    const platform::MutexLock guard(mutex_);
    if (std::chrono::steady_clock::now() < silentUntil_) {
      throw LogindSilence("the session manager (logind) does not answer");
    }
  }
  try {
    return call();
  } catch (const LogindSilence&) {
    const platform::MutexLock guard(mutex_);
    silentUntil_ = std::chrono::steady_clock::now() + silence;
    throw;
  }
}

void LoginManager::suspend() {
  ask([this] { logind_.suspend(); });
}

void LoginManager::takeLidLock() {
  {
    const platform::MutexLock guard(mutex_);
    if (lidLock_.get() >= 0) return;
  }
  platform::Descriptor taken(ask([this] { return logind_.inhibit("handle-lid-switch"); }));
  const platform::MutexLock guard(mutex_);
  lidLock_ = std::move(taken);
}

void LoginManager::releaseLidLock() {
  {
    const platform::MutexLock guard(mutex_);
    lidLock_.close();
  }
  constexpr int looks = 20;
  constexpr std::chrono::milliseconds pause(50);
  try {
    for (int i = 0; i < looks && isLidLocked(); ++i) std::this_thread::sleep_for(pause);
  } catch (const std::runtime_error&) {
    // The list cannot be read, but the kernel has released the lock when it was closed.
  }
}

bool LoginManager::isLidLocked() try {
  const auto locks = ask([this] { return logind_.inhibitors(); });
  return std::any_of(locks.begin(), locks.end(), [](const Inhibitor& lock) {
    return lock.who == Logind::who && lock.holdsOff("handle-lid-switch");
  });
} catch (const NoSessionManager&) {
  // A session manager that starts again honours the locks that are still held.
  const platform::MutexLock guard(mutex_);
  return lidLock_.get() >= 0;
}

LinuxTools::LinuxTools(LinuxRoots roots, std::shared_ptr<LoginManager> manager)
    : roots_(std::move(roots)), manager_(std::move(manager)), processes_(roots_.proc) {}

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
      const bool isDisabled = manager_->isLidLocked();
      return printed(std::string("System-wide power settings:\n SleepDisabled\t\t") +
                     (isDisabled ? "1\n" : "0\n"));
    }
    if (is("/usr/bin/pmset sleepnow")) {
      manager_->suspend();
      return printed("");
    }
    const bool isScript = command.executable == "/usr/bin/osascript";
    if (isScript && line.find("disablesleep 1") != line.npos) {
      manager_->takeLidLock();
      return printed("");
    }
    if (is("/usr/bin/pmset -a disablesleep 0") ||
        (isScript && line.find("disablesleep 0") != line.npos)) {
      manager_->releaseLidLock();
      return printed("");
    }
  } catch (const std::runtime_error& error) {
    fail(error.what());
  }
  throw std::runtime_error("no stand-in on this system for: " + line);
}

}  // namespace wakelatch::host
