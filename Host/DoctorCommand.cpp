// `doctor`: checks settings, agents, statistics, tools, other files and the running watch, and says
// what to do about each problem, as text or as one JSON object. Each function below makes one
// finding. Changes nothing and prompts for nothing; the keep-awake tool runs for half a second.
// Leaves with 1 when anything is wrong.
#include <signal.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
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

Finding good(std::string check, std::string finding) {
  return {.check = std::move(check), .finding = std::move(finding)};
}

Finding problem(std::string check, std::string finding, std::string remedy) {
  return {.check = std::move(check),
          .ok = false,
          .finding = std::move(finding),
          .remedy = std::move(remedy)};
}

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
    return good("settings", isThere(file) ? file + " is valid" : "defaults (no " + file + ")");
  } catch (const std::exception& error) {
    return problem("settings", error.what(), "correct the file, or move it away");
  }
}

/// @param profiles  set to what is found
Finding checkAgents(AgentProfiles& profiles) {
  const auto files = agentsFiles();
  try {
    profiles = loadAgents(files).profiles;
  } catch (const std::exception& error) {
    return problem("agent catalogue", error.what(), "correct the file, or move it away");
  }
  const std::string installed = files[0].string(), own = files[1].string();
  const std::string ofUser = isThere(own) ? own + " is valid" : "none of your own (no " + own + ")";
  if (!isThere(installed)) {
    return problem("agent catalogue", "no " + installed + "; " + ofUser, "reinstall wakelatch");
  }
  return good("agent catalogue", installed + " is valid; " + ofUser);
}

Finding checkUsage() {
  const std::string file = usageFile().string();
  try {
    const bool isRecorded = loadUsage(usageFile()).has_value();
    return good("statistics", isRecorded ? file + " is valid" : "none yet (no " + file + ")");
  } catch (const DamagedUsage& damage) {
    return problem(
        "statistics", damage.what(),
        "correct the file or move it away while no watch runs; the next one sets it aside and "
        "begins anew");
  } catch (const std::exception& error) {
    return problem(
        "statistics", error.what(),
        "make it a file that may be read, or move it away, and start the watch again: it saves "
        "nothing meanwhile");
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
    if (isAnswer(runner.run(command).standardOutput)) return good("tool", line + " answers");
    return problem("tool", line + ": its answer makes no sense",
                   "make sure that " + command.executable + " is the system's own");
  } catch (const std::exception& error) {
    return problem("tool", line + ": " + error.what(),
                   "make sure that " + command.executable + " is there and may be run");
  }
}

/// The tool behind the administrator prompt; not run, as it would prompt.
Finding checkPromptTool() {
  const auto tool = administratorPromptTool();
  if (!tool) return good("administrator prompt", "not needed on this system");
  if (::access(tool->c_str(), X_OK) == 0) return good("administrator prompt", tool->string());
  return problem("administrator prompt", tool->string() + " cannot be run",
                 "lid-closed mode needs it");
}

/// Starts the keep-awake tool for a moment: one that cannot work here ends by itself, or does not
/// report that it is ready.
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
        return problem("keep-awake tool", "cannot keep this machine awake: " + silence,
                       "the message says why this machine cannot be kept awake");
      }
      return good("keep-awake tool", path + (*word == "ready" ? " works" : " works, but " + *word));
    }
    ProcessCommandRunner(trialSeconds).run({path, arguments});
    return problem("keep-awake tool", path + " ended at once", "reinstall it");
  } catch (const CommandRunnerError& error) {
    // The trial is over, and the runner has ended a tool that still ran, as it should.
    if (error.signal() == SIGTERM) return good("keep-awake tool", path + " works");
    return problem("keep-awake tool", path + ": " + error.what(),
                   "the message says why this system cannot be kept awake");
  } catch (const std::exception& error) {
    return problem("keep-awake tool", error.what(), "reinstall it");
  }
}

/// No controller is made here: one that ends would take the running watch's pid file with it.
Finding checkLidClosedSetting(CommandRunning& runner, bool isWatchRunning) {
  const bool marked = isThere(SleepController::engagedMarkerURL());
  const auto state = SleepController::disableSleepState(runner);
  if (state == SleepController::DisableSleepState::unknown) {
    return problem("lid-closed setting", "the system does not say whether sleep is disabled",
                   administratorPromptTool()
                       ? "make sure that `/usr/bin/pmset -g` may be run and answers"
                       : "make sure that the session manager (logind) runs");
  }
  const bool disabled = state == SleepController::DisableSleepState::on;
  Finding result = good(
      "lid-closed setting",
      std::string(marked ? "marked as engaged by wakelatch; " : "not engaged by wakelatch; ") +
          (disabled ? "the system reports sleep disabled" : "the system reports sleep enabled"));
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
    return good("keep-awake processes", "none listed (no " + file + ")");
  }
  std::string listed;
  for (const auto pid : SleepController::readCaffeinatePIDs()) listed += ' ' + std::to_string(pid);
  if (isWatchRunning) return good("keep-awake processes", "listed by the running watch:" + listed);
  return problem("keep-awake processes", file + " was left by an earlier run, listing:" + listed,
                 "wakelatch restore");
}

/// What a running watch wants against what is in effect.
Finding checkWatch(std::optional<std::int64_t> holder,
                   const std::optional<GuardSettings>& settings) {
  if (!holder) return good("watch", "no watch is running");
  const std::string who = pidText(*holder);
  const auto state = runningWatchState();
  if (!state) return good("watch", who + " is starting");
  const Timestamp now = platform::now();
  const std::string what = who + ": " + describe(*state, now);
  if (const auto fault = watchFault(*state, now)) return problem("watch", what, fault->remedy);
  const Held& held = state->held;
  if (!held.isToolWanted || held.prompt) return good("watch", what);
  if (settings && *held.letDisplaySleep != settings->letDisplaySleep) {
    return problem("watch", who + " has not taken over the display setting",
                   "it does at its next tick; see its messages when it does not");
  }
  if (settings && settings->keepAwakeWithLidClosed && !held.isLidClosedEngaged) {
    return problem(
        "watch", "lid-closed mode is switched on, but " + who + " has not engaged it",
        "it was declined or is not possible here, the log says why; to have it tried again, "
        "switch the mode off and on");
  }
  return good("watch", what);
}

Finding checkLog() {
  const fs::path file = FileLogger::shared().logURL();
  fs::path existing = file;
  while (existing.has_relative_path() && !isThere(existing)) existing = existing.parent_path();
  std::error_code unreadable;
  const bool isUsable = isThere(file) ? fs::is_regular_file(file, unreadable) ||
                                            fs::is_character_file(file, unreadable)  // /dev/null
                                      : fs::is_directory(existing, unreadable);
  if (isUsable && ::access(existing.c_str(), W_OK) == 0) return good("log", file.string());
  return problem("log", "cannot write " + file.string(), "make " + existing.string() + " writable");
}

Finding checkUIText(const std::optional<GuardSettings>& settings, const AgentProfiles& profiles) {
  const AccessibilityDetector detector;
  const GuardSettings used = settings.value_or(GuardSettings());
  const auto notice = uiTextNotice(detector, used, profiles);
  if (!notice) {
    return good("UI text", used.accessibilityDetectionEnabled ? "may be read" : "is switched off");
  }
  // A system that has no such interface is no fault that could be mended.
  if (!detector.isSupported()) return good("UI text", *notice);
  return problem("UI text", *notice, "grant the accessibility permission in the system's settings");
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
