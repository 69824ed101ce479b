#include "Platform/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Platform/TextSystem.h"

namespace wakelatch::platform {
namespace {

/// How many bytes at the start of `text` are ASCII.
std::size_t asciiPrefix(std::string_view text) {
  std::size_t length = 0;
  for (std::uint64_t word[2]; text.size() - length >= sizeof word; length += sizeof word) {
    std::memcpy(word, text.data() + length, sizeof word);
    if (((word[0] | word[1]) & 0x8080808080808080) != 0) break;
  }
  while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80) ++length;
  return length;
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
Scalar firstScalar(std::string_view text) {
  const auto trail = [text](std::size_t index) {
    const unsigned char byte = index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
    return (byte & 0xC0) == 0x80 ? char32_t(byte & 0x3F) : brokenByte;
  };
  const auto lead = static_cast<unsigned char>(text[0]);
  if (lead < 0x80) return {lead, 1};
  const char32_t second = trail(1), third = trail(2), fourth = trail(3);
  if (lead >= 0xC2 && lead < 0xE0 && second != brokenByte)
    return {char32_t(lead & 0x1F) << 6 | second, 2};
  if ((lead & 0xF0) == 0xE0 && second != brokenByte && third != brokenByte) {
    const char32_t value = char32_t(lead & 0x0F) << 12 | second << 6 | third;
    const bool isSurrogate = value >= 0xD800 && value < 0xE000;
    if (value >= 0x800 && !isSurrogate) return {value, 3};
  }
  if ((lead & 0xF8) == 0xF0 && second != brokenByte && third != brokenByte &&
      fourth != brokenByte) {
    const char32_t value = char32_t(lead & 0x07) << 18 | second << 12 | third << 6 | fourth;
    if (value >= 0x10000 && value <= 0x10FFFF) return {value, 4};
  }
  return {brokenByte, 1};
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
    std::size_t start = text.size() - 1;
    while (start > 0 && text.size() - start < 3 && (text[start] & 0xC0) == 0x80) --start;
    const Scalar last = firstScalar(text.substr(start));
    if (start + last.length != text.size() || !drops(last.value)) break;
    text.remove_suffix(last.length);
  }
  return text;
}

/// Makes the root locale's case folding pair I with ı and İ with i.
std::string withoutTurkicCapitals(std::string_view text) {
  constexpr std::string_view dotted = "\u0130", dotAbove = "\u0307", dotless = "\u0131";
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    std::size_t length = 1;
    if (text.starts_with(dotted)) {
      length = dotted.size();
      result += 'i';
    } else if (text[0] != 'I') {
      result += text[0];
    } else if (text.substr(1).starts_with(dotAbove)) {
      length += dotAbove.size();
      result += 'i';
    } else {
      result += dotless;
    }
    text.remove_prefix(length);
  }
  return result;
}

std::string caseFolded(std::string_view text, Casing casing) {
  if (casing == Casing::turkic) return caseFolded(withoutTurkicCapitals(text), Casing::common);
  return mapped(text,
                [](std::string_view run) { return system::folded(run, system::Accents::keep); });
}

}  // namespace

Casing userCasing() {
  static const Casing casing = [] {
    const std::string language = system::userLanguage();
    return language == "tr" || language == "az" ? Casing::turkic : Casing::common;
  }();
  return casing;
}

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
  if (asciiPrefix(text) < text.size()) return mapped(text, system::lowercased);
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

bool containsIgnoringCase(std::string_view text, std::string_view needle, Casing casing) {
  return !needle.empty() &&
         caseFolded(text, casing).find(caseFolded(needle, casing)) != std::string::npos;
}

std::string composed(std::string_view text) {
  return asciiPrefix(text) == text.size() ? std::string(text) : mapped(text, system::composed);
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

std::string folded(std::string_view text) {
  return mapped(text,
                [](std::string_view run) { return system::folded(run, system::Accents::drop); });
}

}  // namespace wakelatch::platform
