#include "WakelatchCore/SleepController.h"

#include <signal.h>

#include <algorithm>
#include <array>
#include <exception>
#include <system_error>
#include <utility>

#include "Platform/Files.h"
#include "Platform/Numbers.h"
#include "Platform/Split.h"
#include "Platform/Text.h"
#include "Platform/WatchedChild.h"

namespace wakelatch {
namespace {

constexpr std::array<platform::StopStep, 2> stopLadder{{{SIGTERM, 3.0}, {SIGKILL, 1.0}}};

// ------------------------------------------------------------------------------------- commands

constexpr const char* engageScript =
    "do shell script \"pmset -a disablesleep 1\" with prompt \"Lumenhold is turning on the "
    "lid-closed power setting (pmset disablesleep 1) so the Mac can stay awake with the lid "
    "closed. It is restored when lid-closed mode ends.\" with administrator privileges";
constexpr const char* restoreScript =
    "do shell script \"pmset -a disablesleep 0\" with prompt \"Lumenhold is restoring the normal "
    "sleep setting (pmset disablesleep 0).\" with administrator privileges";

ShellCommand appleScript(const char* script) {
  return {"/usr/bin/osascript", {"-e", script}};
}

ShellCommand pmset(std::vector<std::string> arguments) {
  return {"/usr/bin/pmset", std::move(arguments)};
}

// -------------------------------------------------------------------------------------- parsing

/// The length of the line break that `text` starts with; 0 when it starts with none.
std::size_t lineBreakLength(std::string_view text) {
  constexpr std::string_view nextLine = "\xC2\x85", lineSeparator = "\xE2\x80\xA8",
                             paragraphSeparator = "\xE2\x80\xA9";
  for (const std::string_view lineBreak :
       {std::string_view("\n"), std::string_view("\r"), std::string_view("\v"),
        std::string_view("\f"), nextLine, lineSeparator, paragraphSeparator}) {
    if (text.starts_with(lineBreak)) return lineBreak.size();
  }
  return 0;
}

void removeQuietly(const std::filesystem::path& file) {
  std::error_code ignored;
  std::filesystem::remove(file, ignored);
}

}  // namespace

SleepController::SleepController(CommandRunning& runner, CommandRunning& adminRunner,
                                 FileLogger& logger, std::string caffeinatePath)
    : SleepController(runner, adminRunner, logger, std::move(caffeinatePath), ToolOptions()) {}

SleepController::SleepController(CommandRunning& runner, CommandRunning& adminRunner,
                                 FileLogger& logger, std::string caffeinatePath,
                                 ToolOptions toolOptions)
    : runner_(runner),
      adminRunner_(adminRunner),
      logger_(logger),
      caffeinatePath_(std::move(caffeinatePath)),
      toolOptions_(std::move(toolOptions)) {}

SleepController::~SleepController() {
  stopCaffeinate();
}

bool SleepController::isSleepPreventionEnabled() const {
  const platform::MutexLock guard(lock_);
  return isSleepPreventionEnabled_;
}

bool SleepController::isLidClosedProtectionEngaged() const {
  const platform::MutexLock guard(lock_);
  return disableSleepEngaged_;
}

std::optional<bool> SleepController::appliedLetDisplaySleep() const {
  const KeepAwake current = keepAwake();
  if (current.process == nullptr || !current.process->isRunning()) return std::nullopt;
  return current.letDisplaySleep;
}

SleepController::KeepAwake SleepController::keepAwake() const {
  const platform::MutexLock guard(lock_);
  return keepAwake_;
}

std::optional<std::string> SleepController::keepAwakeFailure() const {
  const platform::MutexLock guard(lock_);
  return keepAwakeFailure_;
}

std::string SleepController::keepAwakeWord() const {
  const platform::MutexLock guard(lock_);
  return keepAwakeWord_;
}

std::optional<std::string> SleepController::sleepFailure() const {
  const platform::MutexLock guard(lock_);
  return sleepFailure_;
}

// ------------------------------------------------------------------------------------ every tick

bool SleepController::setSleepPrevention(bool enabled, bool allowLidClosed, bool letDisplaySleep) {
  return enabled ? enableSleepPrevention(allowLidClosed, letDisplaySleep) : restoreNormalSleep();
}

bool SleepController::enableSleepPrevention(bool allowLidClosed, bool letDisplaySleep) {
  const bool isRunning = startCaffeinate(letDisplaySleep);
  {
    const platform::MutexLock guard(lock_);
    isSleepPreventionEnabled_ = isRunning;
  }
  return allowLidClosed ? engageLidClosedProtection() : true;
}

bool SleepController::restoreNormalSleep() {
  stopKeepAwake();
  return releaseLidClosedProtection();
}

void SleepController::stopKeepAwake() {
  stopCaffeinate();
  const platform::MutexLock guard(lock_);
  isSleepPreventionEnabled_ = false;
}

void SleepController::signalKeepAwake() const {
  std::shared_ptr<platform::WatchedChild> current, starting;
  {
    const platform::MutexLock guard(lock_);
    current = keepAwake_.process;
    starting = startingProcess_;
  }
  for (const auto& process : {current, starting}) {
    if (process != nullptr) process->send(SIGTERM);
  }
}

void SleepController::sleepNow() {
  logger_.log("Requesting pmset sleepnow");
  std::optional<std::string> failure;
  try {
    runner_.run(pmset({"sleepnow"}));
  } catch (const std::exception& error) {
    failure = error.what();
    logger_.log("pmset sleepnow failed: " + *failure);
  }
  const platform::MutexLock guard(lock_);
  sleepFailure_ = failure;
}

// --------------------------------------------------------------------------- keep-awake process

SleepController::Started SleepController::launchCaffeinate(bool letDisplaySleep) {
  const double readySeconds = toolOptions_.readySeconds;
  Started started;
  try {
    started.process = platform::WatchedChild::start(
        caffeinatePath_, caffeinateArguments(letDisplaySleep),
        readySeconds > 0 ? platform::ChildOutput::captured : platform::ChildOutput::inherited);
  } catch (const std::exception& error) {
    started.failure = error.what();
    return started;
  }
  if (readySeconds <= 0) return started;

  {
    const platform::MutexLock guard(lock_);
    startingProcess_ = started.process;
  }
  const std::optional<std::string> word = started.process->awaitWord(readySeconds);
  if (word) {
    started.word = *word;
  } else {
    started.failure = started.process->whyNoWord(readySeconds);
    platform::stop(*started.process, stopLadder);
    started.process = nullptr;
  }
  const platform::MutexLock guard(lock_);
  startingProcess_ = nullptr;
  return started;
}

bool SleepController::startCaffeinate(bool letDisplaySleep) {
  const auto [current, currentLetDisplaySleep] = keepAwake();
  const auto previous = current != nullptr && current->isRunning() ? current : nullptr;
  if (previous != nullptr && currentLetDisplaySleep == letDisplaySleep) {
    const platform::MutexLock guard(lock_);
    keepAwakeFailure_.reset();  // it was about a posture that is no longer wanted
    return true;
  }

  const Started launched = launchCaffeinate(letDisplaySleep);
  const auto& started = launched.process;
  if (started == nullptr) {
    bool isLogged = false;
    {
      const platform::MutexLock guard(lock_);
      isLogged = std::exchange(caffeinateLaunchFailureLogged_, true);
      keepAwakeFailure_ = launched.failure;
    }
    if (!isLogged) {
      logger_.log("Failed to start caffeinate: " + launched.failure +
                  " — retrying each tick, logging once");
    }
    return previous != nullptr;  // it keeps the machine awake in its old posture
  }
  {
    const platform::MutexLock guard(lock_);
    keepAwake_ = {started, letDisplaySleep};
    caffeinateLaunchFailureLogged_ = false;
    keepAwakeFailure_.reset();
    keepAwakeWord_ = launched.word;
  }
  started->onExit(toolOptions_.ended);
  std::vector<std::int32_t> ids{started->id()};
  if (previous != nullptr) ids.push_back(previous->id());
  writeCaffeinatePIDs(ids);
  logger_.log("Started caffeinate pid " + std::to_string(started->id()));

  // The old process ends only now that the new one runs: the machine must not fall asleep between.
  if (previous != nullptr) {
    const std::string id = std::to_string(previous->id());
    previous->forgetHook();
    if (platform::stop(*previous, stopLadder)) {
      writeCaffeinatePIDs({started->id()});
      logger_.log("Retired previous caffeinate pid " + id + " after a display-posture change");
    } else {
      logger_.log("Previous caffeinate pid " + id +
                  " did not confirm exit; sent SIGKILL and moved on");
    }
  }
  return true;
}

void SleepController::stopCaffeinate() {
  std::shared_ptr<platform::WatchedChild> process;
  {
    const platform::MutexLock guard(lock_);
    process = std::exchange(keepAwake_, {}).process;
  }
  if (process != nullptr) process->forgetHook();
  if (process != nullptr && process->isRunning()) {
    const std::string id = std::to_string(process->id());
    if (platform::stop(*process, stopLadder)) {
      logger_.log("Stopped caffeinate pid " + id);
    } else {
      logger_.log("caffeinate pid " + id +
                  " did not confirm exit after SIGTERM; sent SIGKILL and moved on without "
                  "blocking");
    }
  }
  removeQuietly(pidFileURL());
}

void SleepController::reconcileOrphanedCaffeinate() {
  for (const std::int32_t id : readCaffeinatePIDs()) {
    const std::string idText = std::to_string(id);
    std::string name;
    try {
      name = runner_.run({"/bin/ps", {"-p", idText, "-o", "comm="}}).standardOutput;
    } catch (const std::exception&) {
      continue;  // usually because there is no such process
    }
    // Ids below 1 would address whole groups of processes.
    if (id < 1 || platform::lowercased(name).find("caffeinate") == std::string::npos) continue;
    ::kill(id, SIGTERM);
    logger_.log("Killed orphaned caffeinate pid " + idText + " left by a previous run");
  }
  removeQuietly(pidFileURL());
}

std::vector<std::string> SleepController::caffeinateArguments(bool letDisplaySleep) {
  return {letDisplaySleep ? "-ims" : "-dimsu"};
}

// -------------------------------------------------------------------------------------- pid file

std::filesystem::path SleepController::pidFileURL() {
  return platform::homeDirectory() / "Library/Application Support/Lumenhold/caffeinate.pid";
}

void SleepController::writeCaffeinatePIDs(const std::vector<std::int32_t>& ids) {
  std::string text;
  for (const std::int32_t id : ids) text += std::to_string(id) + "\n";
  try {
    const std::filesystem::path file = pidFileURL();
    platform::createDirectories(file.parent_path());
    platform::writeAtomically(file, text);
  } catch (const std::exception& error) {
    logger_.log(std::string("Failed to write caffeinate pid(s): ") + error.what());
  }
}

std::vector<std::int32_t> SleepController::readCaffeinatePIDs() try {
  const std::string text = platform::readFile(pidFileURL());
  if (!platform::isValidUtf8(text)) return {};
  return parseCaffeinatePIDs(text);
} catch (const std::exception&) {
  return {};
}

std::vector<std::int32_t> SleepController::parseCaffeinatePIDs(std::string_view text) {
  std::vector<std::int32_t> ids;
  for (std::size_t start = 0, at = 0; start < text.size();) {
    const std::size_t breakLength = lineBreakLength(text.substr(at));
    if (breakLength == 0 && at < text.size()) {
      ++at;
      continue;
    }
    const std::string_view line = platform::trimmedSpaces(text.substr(start, at - start));
    if (const auto id = platform::parseInt32(line)) ids.push_back(*id);
    at += breakLength;
    start = at;
  }
  return ids;
}

// ---------------------------------------------------------------------------- lid-closed setting

bool SleepController::engageLidClosedProtection() {
  if (isLidClosedProtectionEngaged()) return true;
  logger_.log("Engaging pmset disablesleep for lid-closed mode");
  try {
    adminRunner_.run(appleScript(engageScript));
  } catch (const std::exception& error) {
    logger_.log(std::string("Lid-closed admin step declined; continuing in lid-open (caffeinate) "
                            "mode: ") +
                error.what());
    return false;
  }
  adoptDisableSleepEngaged();
  return true;
}

bool SleepController::releaseLidClosedProtection() {
  return !isLidClosedProtectionEngaged() || disengageDisableSleep();
}

bool SleepController::disengageDisableSleep() {
  bool isRestored = false;
  logger_.log("Restoring pmset disablesleep 0");
  try {
    adminRunner_.run(appleScript(restoreScript));
    isRestored = true;
  } catch (const std::exception& error) {
    logger_.log(std::string("Admin restore failed, trying direct restore: ") + error.what());
    isRestored = restoreDirectly();
  }
  return noteRestore(isRestored);
}

bool SleepController::restoreLidClosedWithoutPrompt() {
  if (!isLidClosedProtectionEngaged()) return true;
  logger_.log("Restoring pmset disablesleep 0 without a prompt");
  return noteRestore(restoreDirectly());
}

bool SleepController::restoreDirectly() {
  try {
    runner_.run(pmset({"-a", "disablesleep", "0"}));
  } catch (const std::exception&) {
    // Ignored: what the system answers below decides.
  }
  return disableSleepState() == DisableSleepState::off;
}

bool SleepController::noteRestore(bool isRestored) {
  noteEngaged(!isRestored);
  if (!isRestored) {
    logger_.log(
        "WARNING: pmset disablesleep may still be engaged after the restore attempt — keeping it "
        "tracked for retry (REVIEW #18)");
  }
  return isRestored;
}

SleepController::DisableSleepState SleepController::disableSleepState(CommandRunning& runner) try {
  const std::string output = runner.run(pmset({"-g"})).standardOutput;
  if (platform::trimmed(output).empty()) return DisableSleepState::unknown;
  return parseSleepDisabled(output) ? DisableSleepState::on : DisableSleepState::off;
} catch (const std::exception&) {
  return DisableSleepState::unknown;
}

SleepController::DisableSleepState SleepController::reconcileLidClosedProtection() {
  const DisableSleepState state = disableSleepState();
  if (state != DisableSleepState::unknown) noteEngaged(state == DisableSleepState::on);
  return state;
}

bool SleepController::isSystemSleepDisabled() {
  return disableSleepState() == DisableSleepState::on;
}

bool SleepController::parseSleepDisabled(std::string_view output) {
  constexpr std::string_view blanks = " \t";
  for (std::string_view line : platform::Split(output, '\n')) {
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    line = line.substr(0, line.find_last_not_of(blanks) + 1);
    if (line.substr(0, line.find_first_of(blanks)) == "SleepDisabled") {
      return line.substr(line.find_last_of(blanks) + 1) == "1";  // the last word
    }
  }
  return false;
}

void SleepController::adoptDisableSleepEngaged() {
  noteEngaged(true);
}

void SleepController::noteEngaged(bool isEngaged) {
  {
    const platform::MutexLock guard(lock_);
    disableSleepEngaged_ = isEngaged;
  }
  if (isEngaged) {
    writeEngagedMarker();
  } else {
    removeQuietly(engagedMarkerURL());
  }
}

bool SleepController::reconcileStuckDisableSleep() {
  std::error_code ignored;
  if (!std::filesystem::exists(engagedMarkerURL(), ignored)) return true;
  if (disableSleepState() == DisableSleepState::off) {
    logger_.log("Stale disablesleep marker found (system reports sleep enabled) — removing it");
    removeQuietly(engagedMarkerURL());
    return true;
  }
  logger_.log(
      "disablesleep marker from a previous run found — clearing stuck pmset disablesleep (REVIEW "
      "#2)");
  return disengageDisableSleep();
}

void SleepController::emergencyRestore() {
  logger_.log("Emergency restore requested");
  stopKeepAwake();
  disengageDisableSleep();
}

std::filesystem::path SleepController::engagedMarkerURL() {
  return pidFileURL().replace_filename("disablesleep.engaged");
}

void SleepController::writeEngagedMarker() {
  try {
    const std::filesystem::path file = engagedMarkerURL();
    platform::createDirectories(file.parent_path());
    // The setting survives a power failure, so its marker has to survive it too.
    platform::writeAtomically(file, "", platform::Durability::power);
  } catch (const std::exception& error) {
    logger_.log(std::string("Failed to write disablesleep marker: ") + error.what());
  }
}

}  // namespace wakelatch
