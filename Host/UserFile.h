// Files that the user may have written, or may not.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "Platform/Files.h"
#include "WakelatchCore/Json.h"

namespace wakelatch::host {

/// The content of `file`, nothing when there is none. Throws std::system_error naming the file when
/// it is there and cannot be read.
std::optional<std::string> readIfThere(const std::filesystem::path& file);

/// The record that a JSON file holds. Throws std::runtime_error naming the file and, where it does
/// not decode, the place in it.
template <class Record>
Record decodeFile(const std::filesystem::path& file) {
  const std::string text = platform::readFile(file);
  try {
    return decode<Record>(text);
  } catch (const DecodingError& error) {
    throw std::runtime_error(file.string() + ": " + error.what());
  }
}

}  // namespace wakelatch::host
