// When a file's content last changed: systems name the field differently.
#pragma once

#include <sys/stat.h>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// When the content last changed, with the fraction of the second.
inline Timestamp contentTime(const struct stat& status) {
#ifdef __APPLE__
  const timespec& time = status.st_mtimespec;
#else
  const timespec& time = status.st_mtim;
#endif
  return Timestamp(std::chrono::duration<double>(static_cast<double>(time.tv_sec) +
                                                 static_cast<double>(time.tv_nsec) * 1e-9));
}

}  // namespace wakelatch::platform
