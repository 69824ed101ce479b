#include <unicode/ubrk.h>
#include <unicode/ucasemap.h>
#include <unicode/uchar.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utf8.h>

#include <cstdint>
#include <vector>

#include "Platform/Text.h"

namespace wakelatch::platform {
namespace {

/// Calls `use(run, isValid)` for the longest runs of valid UTF-8 and of other bytes, in order.
template <class Use>
void forEachRun(std::string_view text, Use use) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  const auto size = static_cast<std::int32_t>(text.size());
  std::int32_t start = 0, position = 0;
  bool validRun = true;
  while (position < size) {
    std::int32_t next = position;
    UChar32 character = 0;
    U8_NEXT(bytes, next, size, character);
    if ((character >= 0) != validRun) {
      if (position > start)
        use(text.substr(std::size_t(start), std::size_t(position - start)), validRun);
      start = position;
      validRun = !validRun;
    }
    position = next;
  }
  if (position > start) use(text.substr(std::size_t(start)), validRun);
}

bool isAscii(std::string_view text) {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

}  // namespace

std::string lowercased(std::string_view text) {
  if (isAscii(text)) {
    std::string result(text);
    for (char& c : result) {
      if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    }
    return result;
  }
  UErrorCode error = U_ZERO_ERROR;
  static UCaseMap* const map = ucasemap_open("", 0, &error);
  std::string result;
  forEachRun(text, [&](std::string_view run, bool valid) {
    if (!valid) {
      result += run;
      return;
    }
    std::string lower(run.size() * 3, '\0');
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t length =
        ucasemap_utf8ToLower(map, lower.data(), static_cast<std::int32_t>(lower.size()), run.data(),
                             static_cast<std::int32_t>(run.size()), &status);
    result.append(lower, 0, static_cast<std::size_t>(length));
  });
  return result;
}

namespace {
template <class Drop>
std::string_view trim(std::string_view text, Drop drop) {
  const auto* bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  std::int32_t start = 0, end = static_cast<std::int32_t>(text.size());
  while (start < end) {
    std::int32_t next = start;
    UChar32 character = 0;
    U8_NEXT(bytes, next, end, character);
    if (!drop(character)) break;
    start = next;
  }
  while (end > start) {
    std::int32_t previous = end;
    UChar32 character = 0;
    U8_PREV(bytes, start, previous, character);
    if (!drop(character)) break;
    end = previous;
  }
  return text.substr(std::size_t(start), std::size_t(end - start));
}

bool isSpaceOrTab(UChar32 c) {
  return c == '\t' || (c >= 0 && u_charType(c) == U_SPACE_SEPARATOR);
}
bool isLineBreak(UChar32 c) {
  return (c >= 0x0a && c <= 0x0d) || c == 0x85 || c == 0x2028 || c == 0x2029;
}
}  // namespace

std::string_view trimmed(std::string_view text) {
  return trim(text, [](UChar32 c) { return isSpaceOrTab(c) || isLineBreak(c); });
}

std::string_view trimmedSpaces(std::string_view text) {
  return trim(text, isSpaceOrTab);
}

bool isDecimalDigit(char32_t character) {
  return u_charType(static_cast<UChar32>(character)) == U_DECIMAL_DIGIT_NUMBER;
}

bool containsIgnoringCase(std::string_view text, std::string_view needle) {
  return !needle.empty() && lowercased(text).find(lowercased(needle)) != std::string::npos;
}

std::string composed(std::string_view text) {
  return std::string(text);
}

std::string_view firstCharacters(std::string_view text, std::size_t count) {
  return text.substr(0, count);
}

std::string folded(std::string_view text) {
  return lowercased(text);
}

}  // namespace wakelatch::platform
