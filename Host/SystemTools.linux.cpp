#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <utility>

#include "Host/SystemTools.h"
#include "Host/linux/LinuxTools.h"
#include "Host/linux/WatchProcess.h"

namespace wakelatch::host {
namespace {

/// The session manager answers within milliseconds, or hangs: who leaves is not to wait for it.
constexpr double answerSeconds = 3;

}  // namespace

std::unique_ptr<SystemTools> makeSystemTools(CommandRunning& /*children*/,
                                             double /*timeoutSeconds*/) {
  ::setenv(watchPidVariable, std::to_string(::getpid()).c_str(), 1);
  // One login manager for all runners of this process; never destroyed, because a thread may still
  // use it at the exit.
  static const auto& manager =
      *new auto(std::make_shared<LoginManager>(Logind{.timeoutSeconds = answerSeconds}));
  return std::make_unique<LinuxTools>(LinuxRoots(), manager);
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
