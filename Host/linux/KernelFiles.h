// Reading what the kernel tells in files of /proc and /sys.
#pragma once

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Platform/Files.h"

namespace wakelatch::host {

/// A file's content; nothing when it is not there, when its process or device has gone, or when it
/// may not be read.
inline std::optional<std::string> kernelFile(const std::filesystem::path& file) {
  try {
    return platform::readFile(file, platform::Owner::anybody);
  } catch (const std::system_error&) {
    return std::nullopt;
  }
}

/// The integer that `text` is as a whole; independent of the locale.
template <class Number>
std::optional<Number> numberIn(std::string_view text) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

/// The names of a directory's entries, in order; none when it cannot be read.
inline std::vector<std::string> namesIn(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    names.push_back(entry->path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace wakelatch::host
