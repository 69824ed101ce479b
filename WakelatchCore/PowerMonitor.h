// Readings of the power source, the battery and the lid, taken from the system's own tools.
#pragma once

#include <string_view>

#include "WakelatchCore/Models.h"
#include "WakelatchCore/ShellCommand.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Reads power source and battery from `pmset -g batt`. Keeps nothing between calls; any thread
/// that may use the runner may call it.
class PowerMonitor {
 public:
  /// @param runner  used, not owned
  explicit PowerMonitor(CommandRunning& runner) : runner_(runner) {}
  PowerMonitor(const PowerMonitor&) = delete;
  PowerMonitor& operator=(const PowerMonitor&) = delete;

  /// Blocks while the tool runs. A failed run is logged and read as battery power of unknown level.
  PowerSnapshot snapshot();

  /// Reads what `pmset -g batt` printed. The first percentage in the text counts, as it stands:
  /// at most its last three digits, over 100 too; absent when those are not all ASCII.
  static PowerSnapshot parsePMSetBatteryOutput(std::string_view output);

 private:
  CommandRunning& runner_;
};

/// Reads the lid's position from `ioreg`. Keeps nothing between calls; any thread that may use the
/// runner may call it.
class LidStateDetector {
 public:
  /// @param runner  used, not owned
  explicit LidStateDetector(CommandRunning& runner) : runner_(runner) {}
  LidStateDetector(const LidStateDetector&) = delete;
  LidStateDetector& operator=(const LidStateDetector&) = delete;

  /// Blocks while the tool runs. A failed run is logged and gives `unknown`.
  LidState lidState();

  /// Finds the clamshell property in what `ioreg` printed; a Yes anywhere wins over a No.
  static LidState parseIORegOutput(std::string_view output);

 private:
  CommandRunning& runner_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
