// The runners of system tools, as the command line asks for them.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "Host/SystemTools.h"
#include "Host/ToolDirectory.h"
#include "WakelatchCore/ShellCommand.h"

namespace wakelatch::host {

/// Looking at the machine, acting on it and prompting have a runner each, so that each can be
/// called off by itself. The runners may be used from any thread.
class Tools {
 public:
  /// How long a tool may take; the longest that a tick should ever wait for one.
  static constexpr double timeoutSeconds = 10;

  /// @param directory  of programs that stand in for tools of their name; empty: none
  explicit Tools(const std::filesystem::path& directory)
      : looking_(timeoutSeconds, directory),
        acting_(timeoutSeconds, directory),
        admin_(adminTimeoutSeconds, directory) {}

  /// For looking at the machine.
  CommandRunning& runner() { return looking_.runner(); }
  /// How closely runner() looks; see SystemTools::setQuiet().
  void setQuiet(bool isQuiet) { looking_.system->setQuiet(isQuiet); }
  /// For acting on it.
  CommandRunning& actingRunner() { return acting_.runner(); }
  /// For commands that show the administrator prompt.
  CommandRunning& adminRunner() { return admin_.runner(); }

  /// A cancelled runner ends its commands and starts no other until it is allowed to again; see
  /// CancellableCommandRunner.
  void cancelLooking() { looking_.children.cancel(); }
  void cancelActing() {
    acting_.children.cancel();
    admin_.children.cancel();
  }
  void allowActing() {
    acting_.children.allow();
    admin_.children.allow();
  }
  /// Whether programs of a directory stand in for the system's.
  bool hasStandIns() const { return admin_.standIns.has_value(); }
  bool isActingCancelled() const { return admin_.children.isCancelled(); }

 private:
  struct Runner {
    Runner(double timeout, const std::filesystem::path& directory)
        : children(timeout), system(makeSystemTools(children, timeout)) {
      if (!directory.empty()) standIns.emplace(directory, children, *system);
    }
    CommandRunning& runner() {
      return standIns ? static_cast<CommandRunning&>(*standIns) : *system;
    }

    CancellableCommandRunner children;
    std::unique_ptr<SystemTools> system;
    std::optional<ToolDirectory> standIns;
  };

  Runner looking_, acting_, admin_;
};

}  // namespace wakelatch::host
