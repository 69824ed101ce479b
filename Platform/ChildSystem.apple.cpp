#include "Platform/ChildSystem.h"

#include <crt_externs.h>
#include <fcntl.h>

#include <cerrno>
#include <system_error>

namespace wakelatch::platform {

Pipe openPipe() {
  int ends[2];
  if (::pipe(ends) != 0) throw std::system_error(errno, std::generic_category());
  // There is no pipe2(). Our own children are safe in between by POSIX_SPAWN_CLOEXEC_DEFAULT.
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return {Descriptor(ends[0]), Descriptor(ends[1])};
}

char** currentEnvironment() {
  return *::_NSGetEnviron();  // `environ` itself cannot be linked into a dynamic library
}

int inheritOnlyStandardStreams(posix_spawnattr_t& attributes, posix_spawn_file_actions_t& actions) {
  short flags = 0;
  int error = ::posix_spawnattr_getflags(&attributes, &flags);
  if (error == 0) {
    error = ::posix_spawnattr_setflags(&attributes,
                                       static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT));
  }
  for (int fd = 0; fd < 3 && error == 0; ++fd) {
    // To inherit a closed descriptor would fail the launch.
    if (::fcntl(fd, F_GETFD) >= 0) error = ::posix_spawn_file_actions_addinherit_np(&actions, fd);
  }
  return error;
}

}  // namespace wakelatch::platform
