// UTF-8, character by character, with room for bytes that are none. Nothing here allocates.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace wakelatch::platform {

constexpr bool isAscii(char c) {
  return (c & 0x80) == 0;
}

constexpr char asciiLowercased(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
}

constexpr char32_t brokenByte = 0xFFFFFFFF;

struct Scalar {
  char32_t value;  ///< or brokenByte
  std::size_t length;
};

/// The first character of a text that is not empty; a byte that starts none stands for itself.
inline Scalar firstScalar(std::string_view text) {
  constexpr Scalar broken = {brokenByte, 1};
  constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return {lead, 1};
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  if (lead < 0xC2 || lead > 0xF4 || length > text.size()) return broken;
  auto value = char32_t(lead & (0x7F >> length));
  for (std::size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80) return broken;
    value = value << 6 | char32_t(text[i] & 0x3F);
  }
  const bool isSurrogate = value >= 0xD800 && value < 0xE000;
  return value < smallest[length] || value > 0x10FFFF || isSurrogate ? broken
                                                                     : Scalar{value, length};
}

/// The last character of a text that is not empty; a byte that ends none stands for itself.
inline Scalar lastScalar(std::string_view text) {
  std::size_t start = text.size() - 1;
  while (start > 0 && text.size() - start < 4 && (text[start] & 0xC0) == 0x80) --start;
  const Scalar last = firstScalar(text.substr(start));
  return start + last.length == text.size() ? last : Scalar{brokenByte, 1};
}

/// Calls `use(run, isValid)` for the longest runs of valid UTF-8 and of broken bytes, in order.
template <class Use>
void forEachRun(std::string_view text, Use use) {
  while (!text.empty()) {
    const bool isValid = firstScalar(text).value != brokenByte;
    std::size_t length = 0;
    while (length < text.size()) {
      const Scalar next = firstScalar(text.substr(length));
      if ((next.value != brokenByte) != isValid) break;
      length += next.length;
    }
    use(text.substr(0, length), isValid);
    text.remove_prefix(length);
  }
}

/// UTF-8 of one character; none when the size is 0.
struct Encoded {
  std::array<char, 4> bytes = {};
  std::uint32_t size = 0;

  operator std::string_view() const { return {bytes.data(), size}; }
};

inline Encoded encoded(char32_t value) {
  const auto part = [value](char32_t lead, int shift) {
    return static_cast<char>(lead | (value >> shift & (lead == 0x80 ? 0x3F : 0x1F)));
  };
  if (value < 0x80) return {{static_cast<char>(value)}, 1};
  if (value < 0x800) return {{part(0xC0, 6), part(0x80, 0)}, 2};
  if (value >= 0xD800 && value < 0xE000) return {};
  if (value < 0x10000) return {{part(0xE0, 12), part(0x80, 6), part(0x80, 0)}, 3};
  return {{part(0xF0, 18), part(0x80, 12), part(0x80, 6), part(0x80, 0)}, 4};
}

}  // namespace wakelatch::platform
