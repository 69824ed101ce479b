// Whether bytes are text at all. Pure, callable from any thread.
#pragma once

#include <string_view>

namespace wakelatch::platform {

/// Whether `bytes` are valid UTF-8: no stray, missing or overlong sequence, no surrogate, nothing
/// above U+10FFFF.
bool isValidUtf8(std::string_view bytes);

}  // namespace wakelatch::platform
