#include "Host/InstanceLock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>
#include <thread>

#include "Platform/Files.h"

namespace wakelatch::host {
namespace {

/// The process id written in the lock file; -1 when there is none.
std::int64_t writtenPid(int fd) {
  std::array<char, 24> text{};
  if (::pread(fd, text.data(), text.size() - 1, 0) <= 0) return -1;
  const std::int64_t pid = std::strtoll(text.data(), nullptr, 10);
  return pid > 0 ? pid : -1;
}

[[noreturn]] void refuse(int error, const std::string& what) {
  throw std::system_error(error, std::generic_category(), what);
}

/// Opens the lock file without waiting, should it be a pipe, and never another place's file.
int openLock(const std::filesystem::path& file, int flags) {
  return ::open(file.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
}

/// A file that has other names may be anybody's, and writing to it would destroy it.
void requireLockFile(int fd, const std::filesystem::path& file) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) refuse(errno, "cannot examine " + file.string());
  if (!S_ISREG(status.st_mode) || status.st_nlink > 1) {
    refuse(EINVAL, "no lock file (remove it): " + file.string());
  }
}

}  // namespace

InstanceLock::InstanceLock(const std::filesystem::path& file) {
  platform::createFolders(file.parent_path());
  fd_ = platform::Descriptor(openLock(file, O_RDWR | O_CREAT));
  const int error = fd_.get() < 0 ? errno : 0;
  if (error == EROFS || error == EACCES) {
    fd_ = platform::Descriptor(openLock(file, O_RDONLY));  // it locks as well, without our name
  }
  if (error == ELOOP) refuse(EINVAL, "a link, no lock file (remove it): " + file.string());
  if (fd_.get() < 0) refuse(error, "cannot open " + file.string());
  requireLockFile(fd_.get(), file);
  // currentHolder() of another process takes the lock for a moment: one refusal may be its.
  for (int attempt = 0; ::flock(fd_.get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (errno != EWOULDBLOCK && errno != EINTR) refuse(errno, "cannot lock " + file.string());
    if (attempt == 5) {
      holder_ = writtenPid(fd_.get());
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  // Who fails to say its name still holds the lock.
  if (::ftruncate(fd_.get(), 0) == 0) [[maybe_unused]]
    const auto n = ::pwrite(fd_.get(), pid.data(), pid.size(), 0);
}

std::optional<std::int64_t> InstanceLock::currentHolder(const std::filesystem::path& file) {
  const platform::Descriptor fd(openLock(file, O_RDONLY));
  if (fd.get() < 0) return std::nullopt;
  if (::flock(fd.get(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK) return std::nullopt;
  return writtenPid(fd.get());
}

}  // namespace wakelatch::host
