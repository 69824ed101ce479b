// Runs tasks one after another on a thread of its own.
#pragma once

namespace wakelatch::platform {
class SerialQueue {};
}  // namespace wakelatch::platform
