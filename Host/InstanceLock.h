// Lets only one watch run at a time: a watch that starts ends the keep-awake process that an
// earlier one left behind, which must not be that of a watch still running.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "Platform/Descriptor.h"

namespace wakelatch::host {

/// Thrown when there is no lock file and none can be made, or when its file system has no locks. A
/// watch then goes on without a lock. After any other failure it must not: the file may be another
/// watch's or somebody else's.
struct NoPlaceForLock : std::system_error {
  explicit NoPlaceForLock(const std::system_error& cause) : system_error(cause) {}
};

/// The lock that a watching host holds; the kernel releases it however the process ends. Blocks on
/// the file system, and a tenth of a second when the lock is taken. Logs nothing. Not for use by
/// several threads at once.
class InstanceLock {
 public:
  /// Takes the lock or says who holds it. Throws NoPlaceForLock, or std::system_error whose text
  /// names the file and what to do about it.
  /// @param file  made when missing; refused are anything but a regular file, a file with other
  ///              names (hard links), one that cannot be opened, and a directory of another user
  explicit InstanceLock(std::filesystem::path file);
  ~InstanceLock() = default;
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

  bool isHeld() const { return fd_.get() >= 0 && holder_ == 0; }
  /// The process that holds the lock instead; -1 when it did not say.
  std::int64_t holder() const { return holder_; }

  /// To be called on every tick: takes the lock anew when the lock file, or its directory, was
  /// removed or replaced, because the old lock then keeps nobody out. Returns what to tell the
  /// user; empty when there is nothing new. Costs two system calls as long as all is well. Throws
  /// std::runtime_error when another watch has taken the lock: then the caller has to end.
  std::string keep();

  /// Whether the locked file still bears its name; a directory that cannot be looked into counts as
  /// unchanged.
  bool isStillInPlace() const;

  /// Lets go and takes the lock as the constructor does. Returns whether it is held. When it
  /// throws, as the constructor does, nothing is held and it may be tried again.
  bool retake();

  /// The process that holds the lock now; nothing when it is free, was never made or cannot be
  /// looked at. Never keeps the lock.
  static std::optional<std::int64_t> currentHolder(const std::filesystem::path& file);

 private:
  std::filesystem::path file_;
  platform::Descriptor fd_;
  std::int64_t holder_ = 0;
  bool isLossTold_ = false;
};

}  // namespace wakelatch::host
