// What a look at the machine reads: the machine itself, or a recording of it.
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

/// All inputs of decisions except settings, mode and time. References to objects that the maker
/// owns.
struct Sources {
  std::function<void()> beginLook;  ///< to be called when a look begins
  CommandRunning& tools;
  platform::Accessibility& accessibility;
  const FileActivityProbing& files;
  TurnReading& turns;
  std::function<ThermalState()> heat;
};

/// The sources of the machine on which the program runs.
class MachineSources {
 public:
  /// How many levels below the home directory session files are searched.
  static constexpr int sessionFileDepth = 12;

  /// How session files are found: by a walk in each look, or by watching directories where the
  /// system supports that, which pays off from the second look on.
  enum class Files { walked, watched };

  /// @param tools  used, not owned
  explicit MachineSources(CommandRunning& tools, Files files = Files::walked);
  MachineSources(const MachineSources&) = delete;
  MachineSources& operator=(const MachineSources&) = delete;

  const Sources& sources() const { return sources_; }

  /// Calls WatchingFileProbe::verify(); returns 0 if files are not watched.
  std::size_t verifyFiles(double seconds);

 private:
  FileActivityProbe walkingFiles_;
  std::optional<WatchingFileProbe> watchedFiles_;
  LookFiles files_;
  TurnReader turns_;
  Sources sources_;
};

}  // namespace wakelatch::host
