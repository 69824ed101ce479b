#include "Platform/Files.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <system_error>
#include <vector>

#include "Platform/Descriptor.h"

namespace wakelatch::platform {
namespace {

[[noreturn]] void fail(int error, const std::string& what, const std::filesystem::path& path) {
  throw std::system_error(error, std::generic_category(), what + " " + path.string());
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(fd, bytes.data(), bytes.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool flushToDisk(int fd) {
#ifdef F_FULLFSYNC  // plain fsync stops at the drive's cache there
  if (::fcntl(fd, F_FULLFSYNC) == 0) return true;
#endif
  return ::fsync(fd) == 0;
}

}  // namespace

std::filesystem::path homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') return home;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
    return found->pw_dir;
  }
  return "/";
}

std::string readFile(const std::filesystem::path& file) {
  const Descriptor input(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
  if (input.get() < 0) fail(errno, "cannot read", file);
  std::string content;
  std::array<char, 65536> block;
  for (;;) {
    const ssize_t count = ::read(input.get(), block.data(), block.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(errno, "cannot read", file);
    if (count == 0) return content;
    content.append(block.data(), static_cast<std::size_t>(count));
  }
}

void createFolders(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) fail(error.value(), "cannot create the folder", folder);
}

void append(const std::filesystem::path& file, std::string_view bytes) {
  const auto open = [&file] {
    return ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
  };
  Descriptor output(open());
  if (output.get() < 0 && errno == ENOENT) {
    createFolders(file.parent_path());
    output = Descriptor(open());
  }
  if (output.get() < 0) fail(errno, "cannot open", file);
  if (!writeAll(output.get(), bytes) || !output.close()) fail(errno, "cannot write", file);
}

void writeAtomically(const std::filesystem::path& file, std::string_view content,
                     Durability durability) {
  std::string temporary = file.string() + ".XXXXXX";
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
    const Descriptor folder(::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder.get() >= 0) flushToDisk(folder.get());  // some file systems cannot; nothing is lost
  }
}

}  // namespace wakelatch::platform
