#include "Platform/Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>

#include "Platform/Descriptor.h"
#include "Platform/FileTime.h"

namespace wakelatch::platform {
namespace {

[[noreturn]] void fail(int error, const std::string& what, const std::filesystem::path& path) {
  throw std::system_error(error, std::generic_category(), what + " " + path.string());
}

bool flushToDisk(int fd) {
#ifdef F_FULLFSYNC  // plain fsync stops at the drive's cache there
  if (::fcntl(fd, F_FULLFSYNC) == 0) return true;
#endif
  return ::fsync(fd) == 0;
}

/// Whether an owner is neither this user nor root. Root may use anybody's files.
bool isStranger(uid_t owner) {
  return owner != 0 && owner != ::geteuid() && ::geteuid() != 0;
}

/// Opens `file` without ever waiting, as the open of a pipe waits for its other side. Without a
/// descriptor, errno says why.
/// @param linkOwner  whose links are followed
Descriptor openWithoutWaiting(const std::filesystem::path& file, int flags,
                              Owner linkOwner = Owner::userOrRoot) {
  const auto open = [&file, all = flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC](int more) {
    return Descriptor(::open(file.c_str(), all | more, 0666));
  };
  if (linkOwner == Owner::anybody) return open(0);
  Descriptor opened = open(O_NOFOLLOW);
  struct stat link {};
  if (opened.get() >= 0 || errno != ELOOP || ::lstat(file.c_str(), &link) != 0) return opened;
  if (isStranger(link.st_uid)) fail(EPERM, "another user's link:", file);
  return open(0);
}

struct stat statusOf(const Descriptor& opened, const std::filesystem::path& file) {
  struct stat status {};
  if (::fstat(opened.get(), &status) != 0) fail(errno, "cannot examine", file);
  return status;
}

/// Ends the name of a file that is to take another one's place.
constexpr std::string_view temporaryEnd = ".new-XXXXXX";
constexpr std::size_t randomLength = 6;  // of its end

}  // namespace

bool writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string readFile(const std::filesystem::path& file, Owner owner) {
  const Descriptor input = openWithoutWaiting(file, O_RDONLY);
  if (input.get() < 0) fail(errno, "cannot read", file);
  const struct stat status = statusOf(input, file);
  if (S_ISDIR(status.st_mode)) fail(EISDIR, "cannot read", file);
  if (!S_ISREG(status.st_mode)) fail(EINVAL, "not a regular file:", file);
  if (owner == Owner::userOrRoot && isStranger(status.st_uid)) {
    fail(EPERM, "another user's file:", file);
  }
  std::string content;
  std::array<char, 65536> block;
  for (;;) {
    const ssize_t count = ::read(input.get(), block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(errno, "cannot read", file);
    if (count == 0) return content;
    if (content.size() + static_cast<std::size_t>(count) > maxReadBytes) {
      fail(EFBIG, "cannot read", file);
    }
    content.append(block.data(), static_cast<std::size_t>(count));
  }
}

namespace {

bool isReadable(const struct stat& status) {
  return S_ISREG(status.st_mode) && !isStranger(status.st_uid);
}

}  // namespace

std::optional<FileStamp> stampOf(const std::filesystem::path& file) {
  struct stat status {};
  if (::stat(file.c_str(), &status) != 0 || !isReadable(status)) return std::nullopt;
  return FileStamp{contentTime(status), static_cast<std::uint64_t>(status.st_size)};
}

std::optional<std::string> readTail(const std::filesystem::path& file, std::size_t maxBytes) {
  const Descriptor input = openWithoutWaiting(file, O_RDONLY, Owner::anybody);
  struct stat status {};
  if (input.get() < 0 || ::fstat(input.get(), &status) != 0 || !isReadable(status)) {
    return std::nullopt;
  }
  const auto size = static_cast<std::uint64_t>(status.st_size);
  std::string tail(static_cast<std::size_t>(std::min<std::uint64_t>(size, maxBytes)), '\0');
  std::size_t filled = 0;
  while (filled < tail.size()) {
    const auto at = static_cast<off_t>(size - tail.size() + filled);
    const ssize_t count = ::pread(input.get(), &tail[filled], tail.size() - filled, at);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::nullopt;
    if (count == 0) break;  // the file was truncated meanwhile
    filled += static_cast<std::size_t>(count);
  }
  tail.resize(filled);
  return tail;
}

void createDirectories(const std::filesystem::path& directory) {
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) fail(error.value(), "cannot create the directory", directory);
  struct stat link {
  }, status{};
  if (::lstat(directory.c_str(), &link) != 0 || ::stat(directory.c_str(), &status) != 0) {
    fail(errno, "cannot examine the directory", directory);
  }
  const bool isShared = status.st_uid != ::geteuid() && (status.st_mode & S_IWOTH) != 0;
  if (isStranger(link.st_uid) || isStranger(status.st_uid) || (isShared && ::geteuid() != 0)) {
    fail(EPERM, "directory is writable by others:", directory);
  }
}

void append(const std::filesystem::path& file, std::string_view bytes, Owner owner) {
  const auto open = [&file, owner](int flags) {
    return openWithoutWaiting(file, O_WRONLY | O_APPEND | flags, owner);
  };
  Descriptor output =
      open(0);  // Linux refuses O_CREAT for another user's file in a shared directory
  if (output.get() < 0 && errno == ENOENT) output = open(O_CREAT);
  if (output.get() < 0 && errno == ENOENT) {
    createDirectories(file.parent_path());
    output = open(O_CREAT);
  }
  if (output.get() < 0) fail(errno, "cannot open", file);
  const struct stat status = statusOf(output, file);
  if (!S_ISREG(status.st_mode) && !S_ISCHR(status.st_mode))
    fail(EINVAL, "not a regular file:", file);
  if (owner == Owner::userOrRoot && isStranger(status.st_uid)) {
    fail(EPERM, "another user's file:", file);
  }
  if (!writeAll(output.get(), bytes) || !output.close()) fail(errno, "cannot write", file);
}

void writeAtomically(const std::filesystem::path& file, std::string_view content,
                     Durability durability) {
  std::string temporary = file.string() + std::string(temporaryEnd);
  Descriptor output(::mkstemp(temporary.data()));  // creates it with mode 0600
  if (output.get() < 0) fail(errno, "cannot create a file beside", file);
  ::fcntl(output.get(), F_SETFD, FD_CLOEXEC);
  if (!writeAll(output.get(), content) ||
      (durability == Durability::power && !flushToDisk(output.get())) || !output.close() ||
      ::rename(temporary.c_str(), file.c_str()) != 0) {
    const int error = errno;
    ::unlink(temporary.c_str());
    fail(error, "cannot write", file);
  }
  if (durability == Durability::power) {
    const Descriptor directory(
        ::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() >= 0)
      flushToDisk(directory.get());  // some file systems cannot; nothing is lost
  }
}

void removeUnfinished(const std::filesystem::path& directory) {
  const std::string_view mark = temporaryEnd.substr(0, temporaryEnd.size() - randomLength);
  std::error_code error;
  for (std::filesystem::directory_iterator entry(directory, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string name = entry->path().filename().string();
    if (name.size() <= temporaryEnd.size()) continue;
    if (name.compare(name.size() - temporaryEnd.size(), mark.size(), mark) == 0) {
      ::unlink(entry->path().c_str());  // never a directory
    }
  }
}

}  // namespace wakelatch::platform
