// Files that the user may have written, or may not.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace wakelatch::host {

/// The content of `file`, nothing when there is none. Throws std::system_error naming the file when
/// it is there and cannot be read.
std::optional<std::string> readIfThere(const std::filesystem::path& file);

}  // namespace wakelatch::host
