#include <signal.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Host/AgentsFile.h"
#include "Host/Commands.h"
#include "Host/InstanceLock.h"
#include "Host/SettingsFile.h"
#include "Host/SupportDirectory.h"
#include "Host/Terminal.h"
#include "Host/UITextNotice.h"
#include "Host/UsageStore.h"
#include "Host/WatchState.h"
#include "Host/WatchText.h"
#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "Platform/WatchedChild.h"
#include "WakelatchCore/AccessibilityDetector.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/PowerMonitor.h"
#include "WakelatchCore/ProcessDetector.h"
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
inline constexpr auto json::fields<host::Finding> = std::tuple{
    json::required("check", &host::Finding::check),
    json::required("ok", &host::Finding::ok),
    json::required("finding", &host::Finding::finding),
    json::optional("remedy", &host::Finding::remedy),
};
template <>
inline constexpr auto json::fields<host::DoctorReport> = std::tuple{
    json::required("ok", &host::DoctorReport::ok),
    json::required("findings", &host::DoctorReport::findings),
};

namespace host {
namespace {

namespace fs = std::filesystem;

std::string pidText(std::int64_t pid) {
  return pid > 0 ? "process " + std::to_string(pid) : "a process that did not say its number";
}

/// What may not be looked at counts as not there.
bool isThere(const fs::path& file) {
  std::error_code unreadable;
  return fs::exists(file, unreadable);
}

Finding checkSettings(std::optional<GuardSettings>& settings) {
  const std::string file = settingsFile().string();
  try {
    settings = loadSettings(settingsFile());
    return {"settings", true, isThere(file) ? file + " is valid" : "defaults (no " + file + ")"};
  } catch (const std::exception& error) {
    return {"settings", false, error.what(), "correct the file, or move it away"};
  }
}

/// @param profiles  set to what is found
Finding checkAgents(AgentProfiles& profiles) {
  const auto files = agentsFiles();
  try {
    profiles = loadAgents(files).profiles;
  } catch (const std::exception& error) {
    return {"agent catalogue", false, error.what(), "correct the file, or move it away"};
  }
  const std::string installed = files[0].string(), own = files[1].string();
  const std::string ofUser = isThere(own) ? own + " is valid" : "none of your own (no " + own + ")";
  if (!isThere(installed)) {
    return {"agent catalogue", false, "no " + installed + "; " + ofUser, "reinstall wakelatch"};
  }
  return {"agent catalogue", true, installed + " is valid; " + ofUser};
}

Finding checkUsage() {
  const std::string file = usageFile().string();
  try {
    const bool isRecorded = loadUsage(usageFile()).has_value();
    return {"statistics", true, isRecorded ? file + " is valid" : "none yet (no " + file + ")"};
  } catch (const DamagedUsage& damage) {
    return {"statistics", false, damage.what(),
            "correct the file or move it away while no watch runs; the next one sets it aside and "
            "begins anew"};
  } catch (const std::exception& error) {
    return {"statistics", false, error.what(),
            "make it a file that may be read, or move it away, and start the watch again: it saves "
            "nothing meanwhile"};
  }
}

bool listsThisProcess(const std::string& output) {
  return ProcessDetector::parsePSArgs(output).contains(::getpid());
}

bool tellsPower(const std::string& output) {
  const PowerSnapshot power = PowerMonitor::parsePMSetBatteryOutput(output);
  return power.isOnACPower || power.batteryPercent;
}

/// Whether a tool answers, with an output that shows what it is to show.
Finding checkTool(CommandRunning& runner, const ShellCommand& command,
                  const std::function<bool(const std::string& output)>& isAnswer) {
  std::string line = command.executable;
  for (const std::string& argument : command.arguments) line += ' ' + argument;
  try {
    if (isAnswer(runner.run(command).standardOutput)) return {"tool", true, line + " answers"};
    return {"tool", false, line + ": its answer makes no sense",
            "make sure that " + command.executable + " is the system's own"};
  } catch (const std::exception& error) {
    return {"tool", false, line + ": " + error.what(),
            "make sure that " + command.executable + " is there and may be run"};
  }
}

/// The tool behind the administrator prompt; not run, as it would prompt.
Finding checkPromptTool() {
  const auto tool = administratorPromptTool();
  if (!tool) return {"administrator prompt", true, "not needed on this system"};
  if (::access(tool->c_str(), X_OK) == 0) return {"administrator prompt", true, tool->string()};
  return {"administrator prompt", false, tool->string() + " cannot be run",
          "lid-closed mode needs it"};
}

/// Starts the keep-awake tool for a moment: one that cannot work here ends by itself, or does not
/// give its word.
Finding checkKeepAwakeTool() {
  const std::string path = keepAwakeTool().string();
  const auto arguments = SleepController::caffeinateArguments(/*letDisplaySleep=*/true);
  constexpr double trialSeconds = 0.5;
  try {
    if (const double readySeconds = keepAwakeReadySeconds(); readySeconds > 0) {
      const auto tool =
          platform::WatchedChild::start(path, arguments, platform::ChildOutput::captured);
      const auto word = tool->awaitWord(readySeconds);
      const std::string silence = word ? "" : tool->whyNoWord(readySeconds);
      tool->send(SIGKILL);
      if (!word) {
        return {"keep-awake tool", false, "cannot keep this machine awake: " + silence,
                "the message says why this machine cannot be kept awake"};
      }
      return {"keep-awake tool", true,
              path + (*word == "ready" ? " works" : " works, but " + *word)};
    }
    ProcessCommandRunner(trialSeconds).run({path, arguments});
    return {"keep-awake tool", false, path + " ended at once", "reinstall it"};
  } catch (const CommandRunnerError& error) {
    // The trial is over, and the runner has ended a tool that still ran, as it should.
    if (error.signal() == SIGTERM) return {"keep-awake tool", true, path + " works"};
    return {"keep-awake tool", false, path + ": " + error.what(),
            "the message says why this system cannot be kept awake"};
  } catch (const std::exception& error) {
    return {"keep-awake tool", false, error.what(), "reinstall it"};
  }
}

/// No controller is made here: one that ends would take the running watch's pid file with it.
Finding checkLidClosedSetting(CommandRunning& runner, bool isWatchRunning) {
  const bool marked = isThere(SleepController::engagedMarkerURL());
  const auto state = SleepController::disableSleepState(runner);
  if (state == SleepController::DisableSleepState::unknown) {
    return {"lid-closed setting", false, "the system does not say whether sleep is disabled",
            administratorPromptTool() ? "make sure that `/usr/bin/pmset -g` may be run and answers"
                                      : "make sure that the session manager (logind) runs"};
  }
  const bool disabled = state == SleepController::DisableSleepState::on;
  Finding result{
      "lid-closed setting", true,
      std::string(marked ? "marked as engaged by wakelatch; " : "not engaged by wakelatch; ") +
          (disabled ? "the system reports sleep disabled" : "the system reports sleep enabled")};
  if (disabled && !marked) {
    result.remedy = "something else disabled sleep; to restore it: wakelatch restore --adopt";
  } else if (marked && !isWatchRunning) {
    result.remedy = "left by an earlier run; to restore it: wakelatch restore";
  } else if (marked && !disabled) {
    result.remedy = administratorPromptTool()
                        ? "something else restored sleep; stop the watch and start it again"
                        : "the session manager is away; if it stays so, start the watch again";
  }
  result.ok = !result.remedy;
  return result;
}

Finding checkPidFile(bool isWatchRunning) {
  const std::string file = SleepController::pidFileURL().string();
  if (!isThere(SleepController::pidFileURL())) {
    return {"keep-awake processes", true, "none listed (no " + file + ")"};
  }
  std::string listed;
  for (const auto pid : SleepController::readCaffeinatePIDs()) listed += ' ' + std::to_string(pid);
  if (isWatchRunning)
    return {"keep-awake processes", true, "listed by the running watch:" + listed};
  return {"keep-awake processes", false, file + " was left by an earlier run, listing:" + listed,
          "wakelatch restore"};
}

/// What a running watch wants against what is in effect.
Finding checkWatch(std::optional<std::int64_t> holder,
                   const std::optional<GuardSettings>& settings) {
  if (!holder) return {"watch", true, "no watch is running"};
  const std::string who = pidText(*holder);
  const auto state = runningWatchState();
  if (!state) return {"watch", true, who + " is starting"};
  const Timestamp now = platform::now();
  const std::string what = who + ": " + describe(*state, now);
  if (const auto fault = watchFault(*state, now)) return {"watch", false, what, fault->remedy};
  const Held& held = state->held;
  if (!held.isToolWanted || held.prompt) return {"watch", true, what};
  if (settings && *held.letDisplaySleep != settings->letDisplaySleep) {
    return {"watch", false, who + " has not taken over the display setting",
            "it does at its next tick; see its messages when it does not"};
  }
  if (settings && settings->keepAwakeWithLidClosed && !held.isLidClosedEngaged) {
    return {"watch", false, "lid-closed mode is switched on, but " + who + " has not engaged it",
            "it was declined or is not possible here, the log says why; to have it tried again, "
            "switch the mode off and on"};
  }
  return {"watch", true, what};
}

Finding checkLog() {
  const fs::path file = FileLogger::shared().logURL();
  fs::path existing = file;
  while (existing.has_relative_path() && !isThere(existing)) existing = existing.parent_path();
  std::error_code unreadable;
  const bool isUsable = isThere(file) ? fs::is_regular_file(file, unreadable) ||
                                            fs::is_character_file(file, unreadable)  // /dev/null
                                      : fs::is_directory(existing, unreadable);
  if (isUsable && ::access(existing.c_str(), W_OK) == 0) return {"log", true, file.string()};
  return {"log", false, "cannot write " + file.string(), "make " + existing.string() + " writable"};
}

Finding checkUIText(const std::optional<GuardSettings>& settings, const AgentProfiles& profiles) {
  const AccessibilityDetector detector;
  const GuardSettings used = settings.value_or(GuardSettings());
  const auto notice = uiTextNotice(detector, used, profiles);
  if (!notice) {
    return {"UI text", true,
            used.accessibilityDetectionEnabled ? "may be read" : "is switched off"};
  }
  // A system that has no such interface is no fault that could be mended.
  if (!detector.isSupported()) return {"UI text", true, *notice};
  return {"UI text", false, *notice, "grant the accessibility permission in the system's settings"};
}

}  // namespace

ExitStatus runCommand(const DoctorOptions& options, Tools& tools) {
  CommandRunning& runner = tools.runner();
  const auto holder = runningWatch();
  std::optional<GuardSettings> settings;
  AgentProfiles profiles;

  DoctorReport report;
  report.findings = {
      checkSettings(settings),
      checkAgents(profiles),
      checkWatch(holder, settings),
      checkPidFile(holder.has_value()),
      checkLidClosedSetting(runner, holder.has_value()),
      checkTool(runner, {"/bin/ps", {"-axo", "pid=,args="}}, listsThisProcess),
      checkTool(runner, {"/usr/bin/pmset", {"-g", "batt"}}, tellsPower),
      checkTool(runner, {"/usr/sbin/ioreg", {"-r", "-k", "AppleClamshellState", "-d", "1"}},
                [](const std::string&) { return true; }),  // not every machine has a lid
      checkPromptTool(),
      checkKeepAwakeTool(),
      checkUIText(settings, profiles),
      checkUsage(),
      checkLog(),
  };
  for (const Finding& finding : report.findings) report.ok = report.ok && finding.ok;

  if (options.json) {
    std::cout << encode(report) << '\n';
  } else {
    for (const Finding& finding : report.findings) {
      std::cout << (finding.ok ? "ok       " : "PROBLEM  ") << finding.check << ": "
                << printable(finding.finding) << '\n';
      if (!finding.ok && finding.remedy)
        std::cout << "         -> " << printable(*finding.remedy) << '\n';
    }
  }
  return report.ok ? ExitStatus::done : ExitStatus::failed;
}

}  // namespace host
}  // namespace wakelatch
