#include "Host/UserFile.h"

#include <system_error>

#include "Platform/Files.h"

namespace wakelatch::host {

std::optional<std::string> readIfThere(const std::filesystem::path& file) {
  try {
    return platform::readFile(file);
  } catch (const std::system_error& error) {
    // Below something that is no directory, or a loop of links, there is no file. In a directory
    // that may not be read there may be one.
    std::error_code cause;
    const bool hasDirectory = std::filesystem::exists(file.parent_path(), cause);
    if (!hasDirectory && cause == std::errc::too_many_symbolic_link_levels) return std::nullopt;
    if (error.code() == std::errc::not_a_directory) return std::nullopt;
    if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
    throw;
  }
}

}  // namespace wakelatch::host
