#include "Platform/ExitNotice.h"

#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace wakelatch::platform {
namespace {

// From Linux 6.15's <linux/pidfd.h>, which most systems do not have yet.
struct PidfdInfo {
  std::uint64_t mask;
  std::uint64_t cgroup;
  std::uint32_t identities[11];
  std::int32_t exitCode;
};
static_assert(sizeof(PidfdInfo) == 64);
constexpr std::uint64_t pidfdInfoExit = 1U << 3;
constexpr unsigned long pidfdGetInfo = _IOWR(0xFF, 11, PidfdInfo);

}  // namespace

ExitNotice::ExitNotice(std::int32_t childId)
    : descriptor_(static_cast<int>(::syscall(SYS_pidfd_open, childId, 0))) {}

std::optional<int> ExitNotice::waitStatus() const {
  PidfdInfo info{};
  info.mask = pidfdInfoExit;
  if (::ioctl(descriptor(), pidfdGetInfo, &info) != 0 || (info.mask & pidfdInfoExit) == 0) {
    return std::nullopt;
  }
  return info.exitCode;
}

}  // namespace wakelatch::platform
