// The sources of a look: the machine itself, or a recording of it.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>

#include "Host/LookFiles.h"
#include "Platform/Accessibility.h"
#include "WakelatchCore/FileActivityProbe.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/ShellCommand.h"
#include "WakelatchCore/TurnRecords.h"
#include "WakelatchCore/WatchingFileProbe.h"

namespace wakelatch::host {

/// All that decisions depend on, beside settings, mode and time. Owned by whoever made them.
struct Sources {
  std::function<void()> beginLook;  ///< to be called when a look begins
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

  /// How session files are found: by walking in each look, or, where the system allows it, by
  /// watching where they may be, which pays from the second look on.
  enum class Files { walked, watched };

  /// @param tools  owned by the caller
  explicit MachineSources(CommandRunning& tools, Files files = Files::walked);
  MachineSources(const MachineSources&) = delete;
  MachineSources& operator=(const MachineSources&) = delete;

  const Sources& sources() const { return sources_; }

  /// See WatchingFileProbe::verify(); 0 when nothing is watched.
  std::size_t verifyFiles(double seconds);

 private:
  FileActivityProbe walkingFiles_;
  std::optional<WatchingFileProbe> watchedFiles_;
  LookFiles files_;
  TurnReader turns_;
  Sources sources_;
};

}  // namespace wakelatch::host
