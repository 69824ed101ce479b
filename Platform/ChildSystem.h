// What starting a child needs beyond POSIX; one source file per system. For ChildProcess.cpp only.
#pragma once

#include <spawn.h>

#include "Platform/Descriptor.h"

namespace wakelatch::platform {

/// The environment that a child inherits.
char** currentEnvironment();

/// Adds to a launch that the child gets the three standard streams and no other descriptor, also
/// none that the host forgot to mark close-on-exec. Returns an error number or 0.
int inheritOnlyStandardStreams(posix_spawnattr_t& attributes, posix_spawn_file_actions_t& actions);

}  // namespace wakelatch::platform
