// Not supported on macOS. FSEvents reports a write only when the file is closed, and agents keep
// their files open for hours. It also watches whole trees: waiting for a directory to appear in
// home would mean a report for every file that any program writes below home.
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
