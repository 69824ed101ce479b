#include "Platform/Utf8.h"

#include <cstdint>
#include <cstring>

namespace wakelatch::platform {
namespace {

/// The length of the valid sequence at the start of [at, end), which is not empty; 0 for none.
std::size_t sequenceLength(const unsigned char* at, const unsigned char* end) {
  const unsigned char lead = *at;
  if (lead < 0x80) return 1;
  if (lead < 0xC2 || lead > 0xF4) return 0;
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (static_cast<std::size_t>(end - at) < length) return 0;
  // The second byte is where overlong forms, surrogates and too large values show.
  const unsigned char least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
  const unsigned char most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
  if (at[1] < least || at[1] > most) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (at[i] < 0x80 || at[i] > 0xBF) return 0;
  }
  return length;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
  const auto* at = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* const end = at + bytes.size();
  while (at != end) {
    if (std::uint64_t block = 0; end - at >= 8) {  // nearly all text of tools is ASCII
      std::memcpy(&block, at, 8);
      if ((block & 0x8080808080808080U) == 0) {
        at += 8;
        continue;
      }
    }
    const std::size_t length = sequenceLength(at, end);
    if (length == 0) return false;
    at += length;
  }
  return true;
}

}  // namespace wakelatch::platform
