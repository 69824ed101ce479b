#include "Platform/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Platform/TextSystem.h"
#include "Platform/Utf8.h"

namespace wakelatch::platform {
namespace {

/// How many bytes at the start of `text` are ASCII.
std::size_t asciiPrefix(std::string_view text) {
  std::size_t length = 0;
  for (std::uint64_t word[2]; text.size() - length >= sizeof word; length += sizeof word) {
    std::memcpy(word, text.data() + length, sizeof word);
    if (((word[0] | word[1]) & 0x8080808080808080) != 0) break;
  }
  while (length < text.size() && isAscii(text[length])) ++length;
  return length;
}

}  // namespace

bool isAllAscii(std::string_view text) {
  return asciiPrefix(text) == text.size();
}

namespace {

/// `text` with `map` applied to its valid runs.
template <class Map>
std::string mapped(std::string_view text, Map map) {
  std::string result;
  forEachRun(text, [&](std::string_view run, bool isValid) {
    isValid ? result += map(run) : result += run;
  });
  return result;
}

bool isSpaceOrTab(char32_t c) {
  return c == '\t' || c == ' ' || c == 0xA0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200A) ||
         c == 0x202F || c == 0x205F || c == 0x3000;
}
bool isSpaceOrLineBreak(char32_t c) {
  return isSpaceOrTab(c) || (c >= 0x0A && c <= 0x0D) || c == 0x85 || c == 0x2028 || c == 0x2029;
}

std::string_view trim(std::string_view text, bool (*drops)(char32_t)) {
  while (!text.empty()) {
    const Scalar first = firstScalar(text);
    if (!drops(first.value)) break;
    text.remove_prefix(first.length);
  }
  while (!text.empty()) {
    const Scalar last = lastScalar(text);
    if (!drops(last.value)) break;
    text.remove_suffix(last.length);
  }
  return text;
}

}  // namespace

bool isValidUtf8(std::string_view bytes) {
  for (;;) {
    bytes.remove_prefix(asciiPrefix(bytes));
    if (bytes.empty()) return true;
    const Scalar first = firstScalar(bytes);
    if (first.value == brokenByte) return false;
    bytes.remove_prefix(first.length);
  }
}

std::string lowercased(std::string_view text) {
  if (!isAllAscii(text)) return mapped(text, system::lowercased);
  std::string result(text);
  std::transform(result.begin(), result.end(), result.begin(), asciiLowercased);
  return result;
}

std::string_view trimmed(std::string_view text) {
  return trim(text, isSpaceOrLineBreak);
}

std::string_view trimmedSpaces(std::string_view text) {
  return trim(text, isSpaceOrTab);
}

bool isDecimalDigit(char32_t character) {
  return system::isDecimalDigit(character);
}

std::string composed(std::string_view text) {
  return isAllAscii(text) ? std::string(text) : mapped(text, system::composed);
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  std::size_t length = 0;
  forEachRun(text, [&](std::string_view run, bool isValid) {
    const std::size_t bytes = isValid ? 0 : std::min(count, run.size());
    length += isValid ? system::clusters(run, count) : bytes;
    count -= bytes;
  });
  return text.substr(0, length);
}

}  // namespace wakelatch::platform
