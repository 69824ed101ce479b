// One watching host at a time: starting up ends the keep-awake process of an earlier run, which
// must not be that of a run still going on.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "Platform/Descriptor.h"

namespace wakelatch::host {

/// The lock that a watching host holds; the kernel releases it however the process ends.
class InstanceLock {
 public:
  /// Takes the lock or says who holds it. Throws std::system_error when the lock file cannot be
  /// made.
  /// @param file  made when missing; what is not a file of that name alone is refused, as is a
  ///              folder that another user owns
  explicit InstanceLock(const std::filesystem::path& file);
  ~InstanceLock() = default;
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

  bool isHeld() const { return holder_ == 0; }
  /// The process that holds the lock instead; -1 when it did not say.
  std::int64_t holder() const { return holder_; }

  /// The process that holds the lock now; nothing when it is free or was never made. Never keeps
  /// the lock.
  static std::optional<std::int64_t> currentHolder(const std::filesystem::path& file);

 private:
  platform::Descriptor fd_;
  std::int64_t holder_ = 0;
};

}  // namespace wakelatch::host
