#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "Host/Commands.h"
#include "Host/Folder.h"
#include "Host/InstanceLock.h"
#include "Host/SettingsFile.h"
#include "Host/UITextNotice.h"
#include "Host/WatchState.h"
#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "WakelatchCore/AccessibilityDetector.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch {
namespace host {
namespace {

/// One thing that was looked at.
struct Finding {
  std::string check;
  bool ok = true;
  std::string finding;
  std::optional<std::string> remedy = {};  ///< what to do when it is not ok
};

struct DoctorReport {
  bool ok = true;
  std::vector<Finding> findings;
};

}  // namespace
}  // namespace host

template <>
inline constexpr auto jsonFields<host::Finding> = std::tuple{
    required("check", &host::Finding::check),
    required("ok", &host::Finding::ok),
    required("finding", &host::Finding::finding),
    optional("remedy", &host::Finding::remedy),
};
template <>
inline constexpr auto jsonFields<host::DoctorReport> = std::tuple{
    required("ok", &host::DoctorReport::ok),
    required("findings", &host::DoctorReport::findings),
};

namespace host {
namespace {

namespace fs = std::filesystem;

std::string pidText(std::int64_t pid) {
  return pid > 0 ? "process " + std::to_string(pid) : "a process that did not say its number";
}

Finding checkSettings(std::optional<GuardSettings>& settings) {
  const std::string file = settingsFile().string();
  try {
    settings = loadSettings(settingsFile());
    return {"settings", true, fs::exists(file) ? file + " is valid" : "defaults (no " + file + ")"};
  } catch (const std::exception& error) {
    return {"settings", false, error.what(), "correct the file, or move it away"};
  }
}

/// Whether a tool answers.
Finding checkTool(CommandRunning& runner, const ShellCommand& command) {
  std::string line = command.executable;
  for (const std::string& argument : command.arguments) line += ' ' + argument;
  try {
    runner.run(command);
    return {"tool", true, line + " answers"};
  } catch (const std::exception& error) {
    return {"tool", false, line + ": " + error.what(),
            "make sure that " + command.executable + " is there and may be run"};
  }
}

/// Starts the keep-awake tool for a moment: one that cannot work here ends by itself.
Finding checkKeepAwakeTool() {
  const std::string path = keepAwakeTool().string();
  constexpr double trialSeconds = 0.5;
  try {
    ProcessCommandRunner(trialSeconds)
        .run({path, SleepController::caffeinateArguments(/*letDisplaySleep=*/true)});
    return {"keep-awake tool", false, path + " ended at once", "reinstall it"};
  } catch (const CommandRunnerError& error) {
    // Ended by us at the end of the trial, as it should be.
    if (error.result().exitCode == 15) return {"keep-awake tool", true, path + " works"};
    return {"keep-awake tool", false, path + ": " + error.what(),
            "the message says why this system cannot be kept awake"};
  } catch (const std::exception& error) {
    return {"keep-awake tool", false, error.what(), "reinstall it"};
  }
}

/// No controller is made here: one that ends would take the running watch's pid file with it.
Finding checkLidClosedSetting(CommandRunning& runner, bool isWatchRunning) {
  const bool marked = fs::exists(SleepController::engagedMarkerURL());
  bool disabled = false;
  try {
    disabled =
        SleepController::parseSleepDisabled(runner.run({"/usr/bin/pmset", {"-g"}}).standardOutput);
  } catch (const std::exception& error) {
    return {"lid-closed setting", false,
            std::string("the system does not say whether sleep is disabled: ") + error.what(),
            "make sure that /usr/bin/pmset is there and may be run"};
  }
  Finding result{
      "lid-closed setting", true,
      std::string(marked ? "marked as engaged by wakelatch; " : "not engaged by wakelatch; ") +
          (disabled ? "the system reports sleep disabled" : "the system reports sleep enabled")};
  if (disabled && !marked) {
    result.remedy = "something else disabled sleep; to restore it: wakelatch restore --adopt";
  } else if (marked && !isWatchRunning) {
    result.remedy = "left by an earlier run; to restore it: wakelatch restore";
  } else if (marked && !disabled) {
    result.remedy = "something else restored sleep; stop the watch and start it again";
  }
  result.ok = !result.remedy;
  return result;
}

Finding checkPidFile(bool isWatchRunning) {
  const std::string file = SleepController::pidFileURL().string();
  if (!fs::exists(SleepController::pidFileURL())) {
    return {"keep-awake processes", true, "none listed (no " + file + ")"};
  }
  std::string listed;
  for (const auto pid : SleepController::readCaffeinatePIDs()) listed += ' ' + std::to_string(pid);
  if (isWatchRunning)
    return {"keep-awake processes", true, "listed by the running watch:" + listed};
  return {"keep-awake processes", false, file + " was left by an earlier run, listing:" + listed,
          "wakelatch restore"};
}

Finding checkWatch(std::optional<std::int64_t> holder) {
  if (!holder) return {"watch", true, "no watch is running"};
  const auto state = runningWatchState();
  if (!state) return {"watch", true, pidText(*holder) + " is starting"};
  // The longest interval is 8 s; a password prompt may take a tick two minutes.
  constexpr double longestTickSeconds = 8 + adminTimeoutSeconds + 20;
  const double age = secondsBetween(state->at, platform::now());
  if (age > longestTickSeconds) {
    return {
        "watch", false,
        pidText(*holder) + " has not ticked for " + std::to_string(static_cast<int>(age)) + " s",
        "stop it and start it again"};
  }
  if (state->isSleepPreventionEnabled && !state->appliedLetDisplaySleep) {
    return {"watch", false,
            pidText(*holder) + " wants this machine awake, but its keep-awake tool does not run",
            "see the log for the reason"};
  }
  return {"watch", true,
          pidText(*holder) + " is running and " +
              (state->isSleepPreventionEnabled ? "keeps this machine awake"
                                               : "lets this machine sleep")};
}

Finding checkLog() {
  const fs::path file = FileLogger::shared().logURL();
  fs::path existing = file;
  while (!existing.empty() && !fs::exists(existing)) existing = existing.parent_path();
  const bool isUsable = fs::exists(file) ? fs::is_regular_file(file) : fs::is_directory(existing);
  if (isUsable && ::access(existing.c_str(), W_OK) == 0) return {"log", true, file.string()};
  return {"log", false, "cannot write " + file.string(), "make " + existing.string() + " writable"};
}

Finding checkUIText(const std::optional<GuardSettings>& settings) {
  const AccessibilityDetector detector;
  const GuardSettings used = settings.value_or(GuardSettings());
  const auto notice = uiTextNotice(detector, used);
  if (!notice) {
    return {"UI text", true,
            used.accessibilityDetectionEnabled ? "may be read" : "is switched off"};
  }
  // A system that has no such interface is no fault that could be mended.
  if (!detector.isSupported()) return {"UI text", true, *notice};
  return {"UI text", false, *notice, "grant the accessibility permission in the system's settings"};
}

}  // namespace

ExitStatus runDoctor(const DoctorOptions& options, Tools& tools) {
  CommandRunning& runner = tools.runner();
  const auto holder = runningWatch();
  std::optional<GuardSettings> settings;

  DoctorReport report;
  report.findings = {
      checkSettings(settings),
      checkWatch(holder),
      checkPidFile(holder.has_value()),
      checkLidClosedSetting(runner, holder.has_value()),
      checkTool(runner, {"/bin/ps", {"-axo", "pid=,args="}}),
      checkTool(runner, {"/usr/bin/pmset", {"-g", "batt"}}),
      checkTool(runner, {"/usr/sbin/ioreg", {"-r", "-k", "AppleClamshellState", "-d", "1"}}),
      checkKeepAwakeTool(),
      checkUIText(settings),
      checkLog(),
  };
  for (const Finding& finding : report.findings) report.ok = report.ok && finding.ok;

  if (options.json) {
    std::cout << encode(report) << '\n';
  } else {
    for (const Finding& finding : report.findings) {
      std::cout << (finding.ok ? "ok       " : "PROBLEM  ") << finding.check << ": "
                << finding.finding << '\n';
      if (!finding.ok && finding.remedy) std::cout << "         -> " << *finding.remedy << '\n';
    }
  }
  return report.ok ? ExitStatus::done : ExitStatus::failed;
}

}  // namespace host
}  // namespace wakelatch
