#include <filesystem>
#include <iostream>
#include <string>

#include "Host/Commands.h"
#include "Host/Folder.h"
#include "Host/InstanceLock.h"
#include "Host/Notices.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

ExitStatus runRestore(const RestoreOptions& options, Tools& tools) {
  const InstanceLock lock(lockFile());
  if (!lock.isHeld()) {
    printNotice("a watch is running" +
                (lock.holder() > 0 ? " (process " + std::to_string(lock.holder()) + ")" : "") +
                "; stop it first: it restores normal sleep when it leaves");
    return ExitStatus::failed;
  }
  SleepController controller(tools.runner(), tools.adminRunner(), FileLogger::shared(),
                             keepAwakeTool().string());

  const auto listed = SleepController::readCaffeinatePIDs();
  controller.reconcileOrphanedCaffeinate();
  for (const auto pid : listed) {
    std::cout << "Process " << pid << " was listed as a keep-awake process of an earlier run; "
              << "it is told to end if it still is one.\n";
  }
  if (listed.empty()) std::cout << "No keep-awake process of an earlier run is listed.\n";

  using State = SleepController::DisableSleepState;
  const bool isOurs = std::filesystem::exists(SleepController::engagedMarkerURL());
  if (!isOurs && !options.adopt) {
    if (controller.disableSleepState() == State::on) {
      printNotice(
          "the system's sleep is disabled, but not by wakelatch; "
          "to take that over and restore it, run: wakelatch restore --adopt");
      return ExitStatus::failed;
    }
    std::cout << "The lid-closed setting is not engaged.\n";
    return ExitStatus::done;
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
