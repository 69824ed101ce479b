// The runners of system tools, as the command line asks for them.
#pragma once

#include <filesystem>
#include <memory>

#include "Host/SystemTools.h"
#include "Host/ToolFolder.h"
#include "WakelatchCore/ShellCommand.h"

namespace wakelatch::host {

class Tools {
 public:
  /// How long a tool may take; the longest that a tick should ever wait for one.
  static constexpr double timeoutSeconds = 10;

  /// @param folder  of programs that stand in for tools of their name; empty: none
  explicit Tools(const std::filesystem::path& folder)
      : system_(makeToolRunner(timeoutSeconds)), systemAdmin_(makeAdminRunner()) {
    if (folder.empty()) return;
    folderRunner_ = std::make_unique<ToolFolder>(folder, child_, *system_);
    folderAdmin_ = std::make_unique<ToolFolder>(folder, adminChild_, *systemAdmin_);
  }

  CommandRunning& runner() { return folderRunner_ ? *folderRunner_ : *system_; }
  /// For commands that show the administrator prompt.
  CommandRunning& adminRunner() { return folderAdmin_ ? *folderAdmin_ : *systemAdmin_; }

 private:
  ProcessCommandRunner child_{timeoutSeconds};
  ProcessCommandRunner adminChild_{adminTimeoutSeconds};
  std::unique_ptr<CommandRunning> system_, systemAdmin_, folderRunner_, folderAdmin_;
};

}  // namespace wakelatch::host
