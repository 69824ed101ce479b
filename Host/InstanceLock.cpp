#include "Host/InstanceLock.h"

#include <fcntl.h>
#include <sys/file.h>
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

}  // namespace

InstanceLock::InstanceLock(const std::filesystem::path& file) {
  platform::createFolders(file.parent_path());
  fd_ = ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd_ < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot open " + file.string());
  }
  // currentHolder() of another process takes the lock for a moment: one refusal may be its.
  for (int attempt = 0; ::flock(fd_, LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (errno != EWOULDBLOCK && errno != EINTR) {
      const int error = errno;
      ::close(fd_);
      throw std::system_error(error, std::generic_category(), "cannot lock " + file.string());
    }
    if (attempt == 5) {
      holder_ = writtenPid(fd_);
      return;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  const std::string pid = std::to_string(::getpid()) + "\n";
  // Who fails to say its name still holds the lock.
  if (::ftruncate(fd_, 0) == 0) [[maybe_unused]]
    const auto n = ::pwrite(fd_, pid.data(), pid.size(), 0);
}

InstanceLock::~InstanceLock() {
  ::close(fd_);
}

std::optional<std::int64_t> InstanceLock::currentHolder(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::optional<std::int64_t> holder;
  if (::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK) holder = writtenPid(fd);
  ::close(fd);
  return holder;
}

}  // namespace wakelatch::host
