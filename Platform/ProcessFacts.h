// What the system knows of other processes. Callable from any thread; does not block. Nothing is
// thrown or logged.
#pragma once

#include <cstdint>
#include <optional>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// When a process of this user began, for root that of any user; nothing when there is none with
/// this id, or the system does not tell. Where the system counts from its own start, setting the
/// clock moves the answer too.
std::optional<Timestamp> processStart(std::int32_t pid);

/// Whether a process of this user has a TCP connection that stands; false when that cannot be told.
bool isConnected(std::int32_t pid);

}  // namespace wakelatch::platform
