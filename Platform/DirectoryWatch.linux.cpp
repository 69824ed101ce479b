#include <poll.h>
#include <sys/inotify.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "Platform/DirectoryWatch.h"

namespace wakelatch::platform {
namespace {

/// The file systems that report every change, by the exact name: only this machine changes them,
/// and names are case-sensitive. Numbers as in statfs(2); linux/magic.h has only some of them.
constexpr std::array<std::uint32_t, 13> toldFileSystems = {
    0xef53,      // ext2, ext3, ext4
    0x58465342,  // XFS
    0x9123683e,  // Btrfs
    0x01021994,  // tmpfs
    0x858458f6,  // ramfs
    0x794c7630,  // overlayfs
    0xf2f52010,  // F2FS
    0x2fc12fc1,  // ZFS
    0xca451a4e,  // bcachefs
    0x3153464a,  // JFS
    0x52654973,  // ReiserFS
    0x3434,      // NILFS
    0xf15f,      // eCryptfs
};

}  // namespace

bool DirectoryWatch::isSupported() {
  return true;
}

// poll() reports the list of mounts as ready when it has changed since the last poll().
DirectoryWatch::DirectoryWatch()
    : events_(aboveStandardStreams(Descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)))),
      mounts_(
          aboveStandardStreams(Descriptor(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC)))) {}

bool DirectoryWatch::isTold(const std::string& path, std::uint64_t device) {
  const auto known = isDeviceTold_.find(device);
  if (known != isDeviceTold_.end()) return known->second;
  struct statfs system {};
  if (::statfs(path.c_str(), &system) != 0) return false;
  const auto type = static_cast<std::uint32_t>(system.f_type);
  return isDeviceTold_[device] = std::find(toldFileSystems.begin(), toldFileSystems.end(), type) !=
                                 toldFileSystems.end();
}

std::optional<DirectoryWatch::Number> DirectoryWatch::add(const std::string& path,
                                                          std::uint64_t device, bool tellsWrites) {
  if (events_.get() < 0 || !isTold(path, device)) return std::nullopt;
  constexpr std::uint32_t always = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_ATTRIB |
                                   IN_ONLYDIR | IN_EXCL_UNLINK | IN_MASK_ADD;
  // IN_CLOSE_WRITE also reports a file that was written through a memory map, when it is closed.
  const std::uint32_t writes = tellsWrites ? IN_MODIFY | IN_CLOSE_WRITE : 0;
  const int number = ::inotify_add_watch(events_.get(), path.c_str(), always | writes);
  return number < 0 ? std::nullopt : std::optional(number);
}

void DirectoryWatch::remove(Number number) {
  ::inotify_rm_watch(events_.get(), number);
}

DirectoryWatch::Changes DirectoryWatch::read() {
  Changes changes;
  pollfd mounts{.fd = mounts_.get(), .events = POLLPRI, .revents = 0};
  if (::poll(&mounts, 1, 0) > 0) {
    changes.mayBeAnything = true;
    isDeviceTold_.clear();
  }
  // Only what is waiting now: other programs may make changes faster than they can be read here.
  int waiting = 0;
  ::ioctl(events_.get(), FIONREAD, &waiting);
  alignas(inotify_event) std::array<char, 65536> buffer;
  for (ssize_t size;
       waiting > 0 && (size = ::read(events_.get(), buffer.data(), buffer.size())) > 0;
       waiting -= static_cast<int>(size)) {
    inotify_event event;
    for (const char* at = buffer.data(); at < buffer.data() + size;
         at += sizeof event + event.len) {
      std::memcpy(&event, at, sizeof event);
      if ((event.mask & IN_Q_OVERFLOW) != 0) changes.mayBeAnything = true;
      const char* name = event.len > 0 ? at + sizeof event : "";  // padded with NULs
      changes.entries.emplace(event.wd, name);
    }
  }
  return changes;
}

}  // namespace wakelatch::platform
