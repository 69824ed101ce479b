// Reading what the kernel tells in files of /proc and /sys.
#pragma once

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Descriptor.h"

namespace wakelatch::host {

/// A file's content; nothing when it is not there, when its process or device has gone, or when it
/// may not be read. For files that the kernel makes up: these have no size, and no owner to trust,
/// and only their end is told with less than there is room for.
inline std::optional<std::string> kernelFile(const std::string& file) {
  constexpr std::size_t longest = 16U << 20;
  const platform::Descriptor opened(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (opened.get() < 0) return std::nullopt;
  std::string content;
  for (std::array<char, 4096> block; content.size() < longest;) {
    const ssize_t count = ::read(opened.get(), block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    content.append(block.data(), static_cast<std::size_t>(count));
    if (static_cast<std::size_t>(count) < block.size()) break;
  }
  return content;
}

/// The integer that `text` is as a whole; independent of the locale.
template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Calls `visit` with each entry of a directory; with none when it cannot be read.
template <class Visit>
void forEachEntry(const std::filesystem::path& directory, const Visit& visit) {
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(directory.c_str()), &::closedir);
  while (const dirent* entry = listing ? ::readdir(listing.get()) : nullptr) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") visit(*entry);
  }
}

/// The names of a directory's entries, in order; none when it cannot be read.
inline std::vector<std::string> namesIn(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  forEachEntry(directory, [&](const dirent& entry) { names.emplace_back(entry.d_name); });
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace wakelatch::host
