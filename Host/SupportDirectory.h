// Where the host keeps its files: the library's directory under the user's home.
#pragma once

#include <filesystem>

#include "WakelatchCore/SleepController.h"

namespace wakelatch::host {

/// "Library/Application Support/Lumenhold" under platform::homeDirectory().
inline std::filesystem::path supportDirectory() {
  return SleepController::pidFileURL().parent_path();
}

inline std::filesystem::path settingsFile() {
  return supportDirectory() / "settings.json";
}
inline std::filesystem::path lockFile() {
  return supportDirectory() / "watch.lock";
}
inline std::filesystem::path watchStateFile() {
  return supportDirectory() / "watch.json";
}
inline std::filesystem::path usageFile() {
  return supportDirectory() / "usage.json";
}

}  // namespace wakelatch::host
