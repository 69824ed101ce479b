// What the host needs of the operating system, one source file per system.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "WakelatchCore/Models.h"
#include "WakelatchCore/ShellCommand.h"

namespace wakelatch::host {

/// A runner of the system's tools.
class SystemTools : public CommandRunning {
 public:
  /// Whether rough listings of processes are enough from now on, because no agent runs and nothing
  /// is held: each new process is listed at once, but what an old one becomes, and its load, some
  /// listings later. Changes nothing where the system's own tool lists them. From any thread; waits
  /// for nothing.
  virtual void setQuiet(bool /*isQuiet*/) {}
};

/// The runner of the system's tools, for any thread. On macOS they run as `children`, with an
/// output that does not depend on the user's language; elsewhere stand-ins in this process answer,
/// and wait for other processes some seconds at most.
/// Call before other threads run: it sets up the environment that children get.
/// @param children  owned by the caller, outlives the result
std::unique_ptr<SystemTools> makeSystemTools(CommandRunning& children, double timeoutSeconds);

/// How long an administrator prompt may stay open: time enough for a password.
inline constexpr double adminTimeoutSeconds = 120;

/// How long the system's keep-awake tool may take to say that it holds the machine awake, in
/// seconds; 0 where it says nothing. See SleepController::ToolOptions.
double keepAwakeReadySeconds();

/// How many seconds to leave between two listings of the processes so that the second tells their
/// load as a watch would see it; 0 where the system itself keeps averages.
double loadSampleSeconds();

/// Lets the system deliver what it has for this process, as an application's main loop would: macOS
/// renews its list of running applications only then. From the main thread, before each tick.
void serviceSystemEvents();

/// How hot the system says it is now. Reads it; callable from any thread.
ThermalState thermalState();

/// The tool that shows the administrator prompt; nothing on a system where lid-closed mode needs no
/// password.
std::optional<std::filesystem::path> administratorPromptTool();

/// The file of the program that runs here, links resolved. Throws std::system_error when the system
/// does not tell.
std::filesystem::path programFile();

/// The system's keep-awake tool, or the stand-in that is built and installed with the host.
std::filesystem::path keepAwakeTool();

}  // namespace wakelatch::host
