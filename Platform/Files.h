// The few file operations that the library and its host share. All may block on the file system
// and may be called from any thread. Failures are thrown as std::system_error whose text names the
// path; nothing is logged here.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace wakelatch::platform {

/// The user's home folder: `HOME` when it is an absolute path, else what the user database says,
/// else "/".
std::filesystem::path homeDirectory();

/// The whole content of a file.
std::string readFile(const std::filesystem::path& file);

/// Creates `folder` with all missing folders above it; no error when it exists.
void createFolders(const std::filesystem::path& folder);

/// Adds `bytes` at the end of `file`. The file and the folders above it are made when missing, with
/// the modes that the user's umask leaves.
void append(const std::filesystem::path& file, std::string_view bytes);

/// How far writeAtomically() goes before it lets the new content take the old one's place.
enum class Durability {
  process,  ///< survives this process; the system flushes it when it likes
  power,    ///< flushed to the disk first: a power cut leaves the old or the new content whole
};

/// Replaces the content of `file` in one step: readers see the old or the new content, never a
/// part, and when anything fails the old file is left as it was. The file is readable and writable
/// by the user alone. A symbolic link at `file` is itself replaced, not followed. The containing
/// folder must exist.
void writeAtomically(const std::filesystem::path& file, std::string_view content,
                     Durability durability = Durability::process);

}  // namespace wakelatch::platform
