// The few file operations that the library and its host share. All may block on the file system,
// but none waits for another process at a pipe; all may be called from any thread. Failures are
// thrown as std::system_error whose text names the path; nothing is logged here.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// The user's home directory. On macOS what the file manager reports, which is the user database's
/// or that of `CFFIXED_USER_HOME`; elsewhere `HOME` when it is an absolute path, else what the user
/// database says, else "/". One source file per system.
std::filesystem::path homeDirectory();

/// More than any of our files ever holds; a file that somebody puts in its place may have any size.
inline constexpr std::size_t maxReadBytes = 16U << 20;

/// Whose files are taken.
enum class Owner { userOrRoot, anybody };

/// The whole content of a regular file of at most maxReadBytes. A link of another user (but root)
/// is not followed.
std::string readFile(const std::filesystem::path& file, Owner owner = Owner::userOrRoot);

/// What tells whether a file has changed.
struct FileStamp {
  Timestamp changedAt;  ///< its content
  std::uint64_t size = 0;
};
///@{
/// Of a regular file of the user's or root's, links on the way followed: its stamp, and its last
/// bytes. Nothing is thrown: what is no such file, or may not be read, has neither.
std::optional<FileStamp> stampOf(const std::filesystem::path& file);
std::optional<std::string> readTail(const std::filesystem::path& file, std::size_t maxBytes);
///@}

/// Creates `directory` with all missing directories above it; no error when it exists, unless it is
/// another user's (but root's) or leads to a directory where everybody may write. Root may use all.
void createDirectories(const std::filesystem::path& directory);

/// Adds `bytes` at the end of `file`: a regular one or a device such as /dev/null. The file is made
/// when missing, and the directories above it, with the modes that the umask leaves. A file may
/// have further hard links: backups create some.
/// @param owner  of the file, and of a link that is followed to it
void append(const std::filesystem::path& file, std::string_view bytes,
            Owner owner = Owner::userOrRoot);

/// Writes all of `bytes`. False with errno set when that fails; a part may be written then.
bool writeAll(int descriptor, std::string_view bytes);

/// How far writeAtomically() goes before it lets the new content take the old one's place.
enum class Durability {
  process,  ///< survives this process; the system flushes it when it likes
  power,    ///< flushed to the disk first: a power cut leaves the old or the new content whole
};

/// Replaces the content of `file` in one step: readers see the old or the new content, never a
/// part, and when anything fails the old file is left as it was. The file is readable and writable
/// by the user alone. A symbolic link at `file` is itself replaced, not followed. The containing
/// directory must exist.
void writeAtomically(const std::filesystem::path& file, std::string_view content,
                     Durability durability = Durability::process);

/// Removes from `directory` what a writeAtomically() that was killed left there. Not while another
/// process may be writing in it. Nothing is thrown.
void removeUnfinished(const std::filesystem::path& directory);

}  // namespace wakelatch::platform
