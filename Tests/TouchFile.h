// Files with given modification times.
#pragma once

#include <sys/time.h>

#include <cmath>
#include <filesystem>
#include <fstream>

#include "Platform/Clock.h"

namespace wakelatch {

/// Makes an empty file, and the directories above it, that was last changed at `time`.
inline void touchFile(const std::filesystem::path& file, Timestamp time) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file).close();
  const auto microseconds = std::llround(time.time_since_epoch().count() * 1e6);
  timeval stamps[2] = {};  // of access and of modification
  stamps[1].tv_sec = static_cast<time_t>(microseconds / 1'000'000);
  stamps[1].tv_usec = static_cast<suseconds_t>(microseconds % 1'000'000);
  ::utimes(file.c_str(), stamps);
}

}  // namespace wakelatch
