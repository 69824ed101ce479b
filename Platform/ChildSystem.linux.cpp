#include "Platform/ChildSystem.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>

namespace wakelatch::platform {

Pipe openPipe() {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category());
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

char** currentEnvironment() {
  return environ;
}

int inheritOnlyStandardStreams([[maybe_unused]] posix_spawnattr_t& attributes,
                               [[maybe_unused]] posix_spawn_file_actions_t& actions) {
#if defined(__GLIBC__)
#if __GLIBC_PREREQ(2, 34)
  return ::posix_spawn_file_actions_addclosefrom_np(&actions, 3);
#endif
#endif
  return 0;
}

}  // namespace wakelatch::platform
