// Reads power source, battery level and lid position by means of the system's own tools.
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

  /// Reads what `pmset -g batt` printed. The battery level is the first percentage in the text: the
  /// number from at most its last three digits, even if over 100; absent if one of these is not
  /// ASCII.
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

  /// Reads the clamshell property in what `ioreg` printed. `closed` if it is Yes anywhere, else
  /// `open` if it is No, else `unknown`.
  static LidState parseIORegOutput(std::string_view output);

 private:
  CommandRunning& runner_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
