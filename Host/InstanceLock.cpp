#include "Host/InstanceLock.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <initializer_list>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include "Platform/Files.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;

/// The process id written in the lock file; -1 when there is none.
std::int64_t writtenPid(int fd) {
  std::array<char, 24> text{};
  if (::pread(fd, text.data(), text.size() - 1, 0) <= 0) return -1;
  const std::int64_t pid = std::strtoll(text.data(), nullptr, 10);
  return pid > 0 ? pid : -1;
}

std::system_error failure(int error, const std::string& what, const fs::path& file) {
  return {error, std::generic_category(), what + ": " + file.string()};
}

bool isOneOf(std::initializer_list<int> errors, int error) {
  return std::find(errors.begin(), errors.end(), error) != errors.end();
}

/// Whether a file or directory that does not exist could not be made for want of a place.
bool isWantOfPlace(int error) {
  return isOneOf({EROFS, EACCES, ENOSPC, EDQUOT, ENOENT, ENOTDIR, ELOOP}, error);
}

void makeDirectory(const fs::path& directory) try {
  platform::createDirectories(directory);
} catch (const std::system_error& error) {
  if (isWantOfPlace(error.code().value())) throw NoPlaceForLock(error);
  throw;
}

std::string userName(uid_t id) {
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(id, &entry, buffer.data(), buffer.size(), &found);
  return found != nullptr ? found->pw_name : "user " + std::to_string(id);
}

/// A file that has other names may be anybody's, and writing to it would destroy it.
void requireLockFile(const struct stat& status, const fs::path& file) {
  if (S_ISREG(status.st_mode) && status.st_nlink <= 1) return;
  throw failure(EINVAL, "no lock file (remove it)", file);
}

/// Opens the lock file without waiting, should it be a pipe, and never another place's file.
platform::Descriptor openFile(const fs::path& file, int flags) {
  return platform::Descriptor(
      ::open(file.c_str(), flags | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
}

/// Opens or makes the lock file. Read-only it locks as well, without our name.
platform::Descriptor openLock(const fs::path& file) {
  platform::Descriptor opened = openFile(file, O_RDWR | O_CREAT);
  const int error = errno;
  if (opened.get() < 0) opened = openFile(file, O_RDONLY);
  struct stat status {};
  if (opened.get() >= 0) {
    if (::fstat(opened.get(), &status) != 0) throw failure(errno, "cannot examine", file);
    requireLockFile(status, file);
    return opened;
  }
  if (::lstat(file.c_str(), &status) == 0) {
    requireLockFile(status, file);
    if (!isOneOf({EACCES, EPERM}, error)) throw failure(error, "cannot open", file);
    throw failure(error,
                  "the lock file is that of " + userName(status.st_uid) +
                      " (stop the watch of that user, if one runs, and remove the file)",
                  file);
  }
  const std::system_error unmade = failure(error, "cannot make the lock file", file);
  if (isWantOfPlace(error) || error == EPERM) throw NoPlaceForLock(unmade);
  throw unmade;
}

}  // namespace

InstanceLock::InstanceLock(fs::path file) : file_(std::move(file)) {
  retake();
}

bool InstanceLock::retake() {
  fd_.close();
  holder_ = 0;
  makeDirectory(file_.parent_path());
  platform::Descriptor opened = openLock(file_);
  // Another process may hold the lock for the moment of its currentHolder(): try again.
  for (int attempt = 0; ::flock(opened.get(), LOCK_EX | LOCK_NB) != 0; ++attempt) {
    if (isOneOf({ENOLCK, ENOTSUP, EOPNOTSUPP, EINVAL, ENOSYS}, errno)) {
      throw NoPlaceForLock(
          failure(errno, "a file system without locks (start no second watch)", file_));
    }
    if (errno != EWOULDBLOCK && errno != EINTR) throw failure(errno, "cannot lock", file_);
    if (attempt == 5) {
      holder_ = writtenPid(opened.get());
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  fd_ = std::move(opened);
  const std::string pid = std::to_string(::getpid()) + "\n";
  // The lock is held even if the pid cannot be written.
  if (::ftruncate(fd_.get(), 0) == 0) [[maybe_unused]]
    const auto n = ::pwrite(fd_.get(), pid.data(), pid.size(), 0);
  return true;
}

bool InstanceLock::isStillInPlace() const {
  struct stat locked {
  }, named{};
  if (::fstat(fd_.get(), &locked) != 0) return false;
  if (::lstat(file_.c_str(), &named) != 0) return errno != ENOENT && errno != ENOTDIR;
  return locked.st_dev == named.st_dev && locked.st_ino == named.st_ino;
}

std::string InstanceLock::keep() {
  if (isStillInPlace()) return {};
  try {
    if (!retake()) {
      throw std::runtime_error("the lock file was removed, and another watch (process " +
                               std::to_string(holder_) + ") has locked a new one");
    }
  } catch (const std::system_error& error) {
    if (std::exchange(isLossTold_, true)) return {};
    return std::string("the lock is lost: ") + error.what() + "; watching on without it";
  }
  isLossTold_ = false;
  return "the lock file was removed or replaced; locked anew: " + file_.string();
}

std::optional<std::int64_t> InstanceLock::currentHolder(const fs::path& file) {
  const platform::Descriptor opened = openFile(file, O_RDONLY);
  if (opened.get() < 0) return std::nullopt;
  if (::flock(opened.get(), LOCK_SH | LOCK_NB) == 0 || errno != EWOULDBLOCK) return std::nullopt;
  return writtenPid(opened.get());
}

}  // namespace wakelatch::host
