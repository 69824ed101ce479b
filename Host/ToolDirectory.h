// A directory of stand-ins for the system's tools.
#pragma once

#include <filesystem>
#include <utility>

#include "WakelatchCore/ShellCommand.h"

namespace wakelatch::host {

/// Runs `pmset` from a directory in place of "/usr/bin/pmset", and likewise every tool that the
/// directory holds; runs the others where they are. For trying out the host without touching the
/// machine.
class ToolDirectory : public CommandRunning {
 public:
  /// @param runner          runs the tools of the directory; owned by the caller
  /// @param fallbackRunner  runs the others; owned by the caller
  ToolDirectory(std::filesystem::path directory, CommandRunning& runner,
                CommandRunning& fallbackRunner)
      : directory_(std::move(directory)), runner_(runner), fallbackRunner_(fallbackRunner) {}

  CommandResult run(const ShellCommand& command) override {
    const std::filesystem::path standIn =
        directory_ / std::filesystem::path(command.executable).filename();
    if (!std::filesystem::exists(standIn)) return fallbackRunner_.run(command);
    return runner_.run({standIn.string(), command.arguments});
  }

 private:
  std::filesystem::path directory_;
  CommandRunning& runner_;
  CommandRunning& fallbackRunner_;
};

}  // namespace wakelatch::host
