// Where the host keeps its files: the library's folder under the user's home.
#pragma once

#include <filesystem>

#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

/// "Library/Application Support/Lumenhold" under the home folder; follows `HOME`.
inline std::filesystem::path supportFolder() {
  return SleepController::pidFileURL().parent_path();
}

inline std::filesystem::path settingsFile() {
  return supportFolder() / "settings.json";
}
inline std::filesystem::path lockFile() {
  return supportFolder() / "watch.lock";
}
inline std::filesystem::path watchStateFile() {
  return supportFolder() / "watch.json";
}
inline std::filesystem::path usageFile() {
  return supportFolder() / "usage.json";
}

}  // namespace wakelatch::host
