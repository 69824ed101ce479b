// Starting a thread of the library or of its host.
#pragma once

#include <functional>
#include <string>
#include <thread>

namespace wakelatch::platform {

/// Starts a thread that debuggers show as `name` (cut to 15 bytes on Linux) and on which no signal
/// of the host is delivered. Throws std::system_error when the system has no thread to give.
std::thread startThread(const std::string& name, std::function<void()> body);

}  // namespace wakelatch::platform
