// `restore`: ends the keep-awake tools that an earlier run has left and restores the lid-closed
// setting, which may show the administrator prompt. Refuses while a watch runs. Ends with `done`,
// `failed` when there was nothing of ours to restore or no answer, `notRestored` when a setting
// stayed engaged.
#include <signal.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "Host/Commands.h"
#include "Host/InstanceLock.h"
#include "Host/Notices.h"
#include "Host/SupportDirectory.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

namespace {

/// Ends what an earlier run left running, and says of each process what became of it.
void endOrphans(SleepController& controller) {
  const auto listed = SleepController::readCaffeinatePIDs();
  if (listed.empty()) std::cout << "No keep-awake process of an earlier run is listed.\n";
  controller.reconcileOrphanedCaffeinate();
  const auto isThere = [](std::int32_t pid) {
    return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM);
  };
  for (int polls = 0; polls < 20 && std::any_of(listed.begin(), listed.end(), isThere); ++polls) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  for (const std::int32_t pid : listed) {
    std::cout << "Process " << pid << ", listed as a keep-awake process, "
              << (isThere(pid) ? "is still there: it does not end, or is another program by now.\n"
                               : "is gone.\n");
  }
}

}  // namespace

ExitStatus runCommand(const RestoreOptions& options, Tools& tools) {
  std::optional<InstanceLock> lock;
  try {
    lock.emplace(lockFile());
  } catch (const std::system_error& error) {
    // Whether a watch is running cannot be told then, but a machine that cannot sleep must be
    // helped.
    printNotice(std::string(error.what()) + "; restoring all the same");
  }
  if (lock && !lock->isHeld()) {
    printNotice("a watch is running" +
                (lock->holder() > 0 ? " (process " + std::to_string(lock->holder()) + ")" : "") +
                "; stop it first: it restores normal sleep when it leaves");
    return ExitStatus::failed;
  }
  SleepController controller(tools.runner(), tools.adminRunner(), FileLogger::shared(),
                             keepAwakeTool().string());

  endOrphans(controller);

  using State = SleepController::DisableSleepState;
  std::error_code unreadable;
  const bool isOurs = std::filesystem::exists(SleepController::engagedMarkerURL(), unreadable);
  if (!isOurs && !options.adopt) {
    switch (controller.disableSleepState()) {
      case State::off:
        std::cout << "The lid-closed setting is not engaged.\n";
        return ExitStatus::done;
      case State::on:
        printNotice(
            "the system's sleep is disabled, but not by wakelatch; "
            "to take that over and restore it, run: wakelatch restore --adopt");
        return ExitStatus::failed;
      case State::unknown:
        printNotice(
            "the system does not say whether its sleep is disabled (`pmset -g` gives no answer); "
            "to restore it anyway, run: wakelatch restore --adopt");
        return ExitStatus::failed;
    }
  }
  if (options.adopt) {
    controller.adoptDisableSleepEngaged();
    controller.emergencyRestore();
  } else {
    controller.reconcileStuckDisableSleep();
  }
  if (controller.isLidClosedProtectionEngaged()) {
    printNotice(
        "the lid-closed setting could not be restored; run this command again and allow it, "
        "or run: sudo pmset -a disablesleep 0");
    return ExitStatus::notRestored;
  }
  std::cout << "The lid-closed setting is restored: the machine sleeps as usual.\n";
  return ExitStatus::done;
}

}  // namespace wakelatch::host
