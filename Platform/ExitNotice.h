// Tells when a child has exited, without reaping it; one source file per system.
#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Descriptor.h"

namespace wakelatch::platform {

class ExitNotice {
 public:
  /// To be made right after the launch. Never fails, but may end up without a descriptor.
  explicit ExitNotice(std::int32_t childId);

  /// Becomes and stays readable when the child exits. Negative when the system gives no notice: too
  /// old, out of descriptors, or the child is already gone.
  int descriptor() const { return descriptor_.get(); }

  /// The wait status of an exited child that waitpid() no longer knows, because the process ignores
  /// SIGCHLD or the host has reaped it; nothing when the system does not keep it. Call once.
  std::optional<int> waitStatus() const;

 private:
  Descriptor descriptor_;
};

}  // namespace wakelatch::platform
