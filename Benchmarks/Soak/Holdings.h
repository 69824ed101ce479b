// Measures the resources of this process. Linux only, as it reads /proc.
#pragma once

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

namespace wakelatch::soak {

/// The ids of this process's children, including ended ones that have not been waited for.
inline std::vector<std::int32_t> childrenOfThis() {
  std::vector<std::int32_t> children;
  std::error_code threadEnded;
  for (const auto& thread : std::filesystem::directory_iterator("/proc/self/task", threadEnded)) {
    std::ifstream file(thread.path() / "children");
    std::copy(std::istream_iterator<std::int32_t>(file), {}, std::back_inserter(children));
  }
  return children;
}

inline std::ptrdiff_t entriesOf(const char* directory) {
  return std::distance(std::filesystem::directory_iterator(directory), {});
}

inline double heapKiB() {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 33)
  const auto heap = ::mallinfo2();
  return static_cast<double>(heap.uordblks + heap.hblkhd) / 1024;
#else
  return 0;
#endif
}

/// Returns freed memory to the system. glibc keeps some for reuse: it raises its threshold for
/// mapping a block separately to the largest freed block, and keeps up to twice as much at the end
/// of each arena. So several times the size of the statistics' text and of its decoded tree stays
/// resident. This is not growth, but would hide real growth.
inline void giveBackFreed() {
#if defined(__GLIBC__)
  ::malloc_trim(0);
#endif
}

inline double residentKiB() {
  std::ifstream file("/proc/self/statm");
  long size = 0, resident = 0;
  file >> size >> resident;
  return static_cast<double>(resident) * static_cast<double>(::sysconf(_SC_PAGESIZE)) / 1024;
}

/// The resources of the process while the guard rests.
struct Holdings {
  std::ptrdiff_t descriptors = 0, threads = 0;
  std::size_t children = 0;
  friend bool operator==(const Holdings&, const Holdings&) = default;

  static Holdings now() {
    return {entriesOf("/proc/self/fd"), entriesOf("/proc/self/task"), childrenOfThis().size()};
  }
  /// Waits for ending threads and for the log, then measures.
  static Holdings settled(const std::optional<Holdings>& expected) {
    for (int tries = 0; tries < 400; ++tries) {
      const Holdings held = now();
      if (expected && held == *expected) return held;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      if (!expected && tries > 40) break;
    }
    return now();
  }
};

}  // namespace wakelatch::soak
