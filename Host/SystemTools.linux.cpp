#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "Host/SystemTools.h"
#include "Host/linux/LinuxTools.h"
#include "Host/linux/WatchProcess.h"

namespace wakelatch::host {

std::unique_ptr<CommandRunning> makeSystemTools(CommandRunning& /*children*/,
                                                double timeoutSeconds) {
  ::setenv(watchPidVariable, std::to_string(::getpid()).c_str(), 1);
  // Each runner acts for this process, which has one lid lock.
  static const auto& lidLock = *new std::shared_ptr<LidLock>(std::make_shared<LidLock>());
  LinuxRoots roots;
  roots.logind.timeoutSeconds = timeoutSeconds;
  return std::make_unique<LinuxTools>(std::move(roots), lidLock);
}

double keepAwakeReadySeconds() {
  return 5;
}

double loadSampleSeconds() {
  return 2;  // the kernel counts in steps of 0.01 s: over 0.2 s one of them is 5 %
}

void serviceSystemEvents() {}

ThermalState thermalState() {
  return thermalState(LinuxRoots().thermal);
}

std::optional<std::filesystem::path> administratorPromptTool() {
  return std::nullopt;
}

std::filesystem::path programFile() {
  return std::filesystem::read_symlink("/proc/self/exe");
}

std::filesystem::path keepAwakeTool() {
  // Never one found elsewhere: in a shared directory it would be another package's program.
  return (programFile().parent_path() / WAKELATCH_LIBEXEC_FROM_BIN / "caffeinate")
      .lexically_normal();
}

}  // namespace wakelatch::host
