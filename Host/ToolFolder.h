// A folder of stand-ins for the system's tools.
#pragma once

#include <filesystem>
#include <utility>

#include "WakelatchCore/ShellCommand.h"

namespace wakelatch::host {

/// Runs `pmset` from a folder in place of "/usr/bin/pmset", and so on for every tool that the
/// folder holds; the others as they are. For trying out the host without touching the machine.
class ToolFolder : public CommandRunning {
 public:
  /// @param runner          runs the tools of the folder; owned by the caller
  /// @param fallbackRunner  runs the others; owned by the caller
  ToolFolder(std::filesystem::path folder, CommandRunning& runner, CommandRunning& fallbackRunner)
      : folder_(std::move(folder)), runner_(runner), fallbackRunner_(fallbackRunner) {}

  CommandResult run(const ShellCommand& command) override {
    const std::filesystem::path standIn =
        folder_ / std::filesystem::path(command.executable).filename();
    if (!std::filesystem::exists(standIn)) return fallbackRunner_.run(command);
    return runner_.run({standIn.string(), command.arguments});
  }

 private:
  std::filesystem::path folder_;
  CommandRunning& runner_;
  CommandRunning& fallbackRunner_;
};

}  // namespace wakelatch::host
