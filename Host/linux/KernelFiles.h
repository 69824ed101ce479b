// Reads the kernel's files in /proc and /sys.
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

/// A file's content, up to 16 MiB; absent if the file is missing or may not be read, or its process
/// or device has gone. Only for files that the kernel generates: they have no size, and a short
/// read marks their end.
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

/// The integer that the whole `text` represents, in any locale; absent if it is none.
template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// Calls `visit` with each entry of a directory; does nothing if it cannot be read.
template <class Visit>
void forEachEntry(const std::filesystem::path& directory, const Visit& visit) {
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::opendir(directory.c_str()), &::closedir);
  while (const dirent* entry = listing ? ::readdir(listing.get()) : nullptr) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") visit(*entry);
  }
}

/// The names of a directory's entries, sorted; empty if it cannot be read.
inline std::vector<std::string> namesIn(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  forEachEntry(directory, [&](const dirent& entry) { names.emplace_back(entry.d_name); });
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace wakelatch::host
