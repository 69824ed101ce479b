// Nothing is told on macOS. FSEvents tells of a write when the file is closed, and agents keep
// their files open for hours; and it watches whole trees, so who waits for one directory to appear
// in home hears of every file that any program writes below it.
#include "Platform/DirectoryWatch.h"

namespace wakelatch::platform {

bool DirectoryWatch::isSupported() {
  return false;
}

DirectoryWatch::DirectoryWatch() = default;

std::optional<DirectoryWatch::Number> DirectoryWatch::add(const std::string& /*path*/,
                                                          std::uint64_t /*device*/,
                                                          bool /*tellsWrites*/) {
  return std::nullopt;
}

void DirectoryWatch::remove(Number /*number*/) {}

DirectoryWatch::Changes DirectoryWatch::read() {
  return {};
}

}  // namespace wakelatch::platform
