// What a look at the machine asks: the machine itself, or a recording of it.
#pragma once

#include <functional>

#include "Host/LookFiles.h"
#include "Platform/Accessibility.h"
#include "WakelatchCore/FileActivityProbe.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/ShellCommand.h"
#include "WakelatchCore/TurnRecords.h"

namespace wakelatch::host {

/// All that decisions depend on, beside settings, mode and time. Owned by whoever made them.
struct Sources {
  std::function<void()> beginLook;  ///< called first in a look
  CommandRunning& tools;
  platform::Accessibility& accessibility;
  const FileActivityProbing& files;
  TurnReading& turns;
  std::function<ThermalState()> heat;
};

/// The machine that this runs on.
class MachineSources {
 public:
  /// How deep below the home directory session files are looked for.
  static constexpr int sessionFileDepth = 12;

  /// @param tools  owned by the caller
  explicit MachineSources(CommandRunning& tools);
  MachineSources(const MachineSources&) = delete;
  MachineSources& operator=(const MachineSources&) = delete;

  const Sources& sources() const { return sources_; }

 private:
  FileActivityProbe walkingFiles_;
  LookFiles files_;
  TurnReader turns_;
  Sources sources_;
};

}  // namespace wakelatch::host
