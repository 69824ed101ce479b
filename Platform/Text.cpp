#include "Platform/Text.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>

#include "Platform/TextSystem.h"

namespace wakelatch::platform {
namespace {

constexpr bool isAscii(char c) {
  return (c & 0x80) == 0;
}
bool isAllAscii(std::string_view text) {
  return std::all_of(text.begin(), text.end(), isAscii);
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

// ---------------------------------------------------------------------------------------- folding

constexpr char asciiFolded(char c) {
  return c == '\n' || c == '\t' ? ' ' : asciiLowercased(c);
}

/// The same for eight characters at once; what is not ASCII stays.
constexpr std::uint64_t eightFolded(std::uint64_t eight) {
  constexpr std::uint64_t each = 0x0101010101010101;
  // The top bit of every byte from `low` to `high`: the sum of the lower seven bits carries into
  // it.
  const auto within = [eight](std::uint64_t low, std::uint64_t high) {
    const std::uint64_t lower = eight & 0x7F * each;
    const std::uint64_t edges = (lower + (0x80 - low) * each) ^ (lower + (0x7F - high) * each);
    return edges & ~eight & 0x80 * each;
  };
  const std::uint64_t breaks = (within('\t', '\n') >> 7) * 0xFF;
  return ((eight | within('A', 'Z') >> 2) & ~breaks) | (breaks & ' ' * each);
}

/// Folds the ASCII that `text` starts with: takes it off `text` and moves `out` past the result.
/// `out` has room for the whole text; what lies behind the result is overwritten.
void foldAscii(std::string_view& text, char*& out) {
  for (std::uint64_t eight = 0; text.size() >= sizeof eight;) {
    std::memcpy(&eight, text.data(), sizeof eight);
    const std::uint64_t folded = eightFolded(eight);
    std::memcpy(out, &folded, sizeof folded);
    const std::uint64_t tops = eight & 0x8080808080808080;
    const auto ascii = static_cast<std::size_t>(std::countr_zero(tops)) / 8;
    text.remove_prefix(ascii);
    out += ascii;
    if (tops != 0) return;
  }
  while (!text.empty() && isAscii(text[0])) {
    *out++ = asciiFolded(text[0]);
    text.remove_prefix(1);
  }
}

/// UTF-8 of one character; none when the size is 0.
struct Encoded {
  std::array<char, 4> bytes = {};
  std::uint32_t size = 0;

  operator std::string_view() const { return {bytes.data(), size}; }
};

Encoded encoded(char32_t value) {
  const auto part = [value](char32_t lead, int shift) {
    return static_cast<char>(lead | (value >> shift & (lead == 0x80 ? 0x3F : 0x1F)));
  };
  if (value < 0x80) return {{static_cast<char>(value)}, 1};
  if (value < 0x800) return {{part(0xC0, 6), part(0x80, 0)}, 2};
  if (value >= 0xD800 && value < 0xE000) return {};
  if (value < 0x10000) return {{part(0xE0, 12), part(0x80, 6), part(0x80, 0)}, 3};
  return {{part(0xF0, 18), part(0x80, 12), part(0x80, 6), part(0x80, 0)}, 4};
}

std::string foldedBySystem(std::string_view text) {
  std::string result;
  forEachRun(text, [&](std::string_view run, bool isValid) {
    if (isValid) {
      result += system::folded(run, system::Accents::drop);
      return;
    }
    // In a form that is no part of any character's, lest a byte is found inside a character.
    for (const char byte : run) {
      result += static_cast<char>(0xF8 | (byte >> 6 & 1));
      result += static_cast<char>(0x80 | (byte & 0x3F));
    }
  });
  std::transform(result.begin(), result.end(), result.begin(),
                 [](char c) { return asciiFolded(c); });
  return result;
}

/// What each of 256 neighbouring characters folds to; none for those that fold to several, or
/// together with the character before: accents, parts of syllables.
using FoldingPage = std::array<Encoded, 256>;

std::unique_ptr<const FoldingPage> makeFoldingPage(char32_t first) {
  // What takes a mark or a part of a syllable: a Latin letter, a Korean initial, a Korean syllable.
  constexpr std::string_view neighbours[] = {"", "a", "\u1100", "\uAC00"};
  std::string lines;  // for one call to the system instead of a thousand
  for (char32_t c = first; c < first + 256; ++c) {
    for (const std::string_view neighbour : neighbours)
      lines.append(neighbour).append(c < 0x80 ? Encoded() : encoded(c)).append("\n");
  }
  lines = system::folded(lines, system::Accents::drop);

  auto page = std::make_unique<FoldingPage>();
  std::string_view rest = lines;
  for (Encoded& entry : *page) {
    std::string_view alone;
    bool isIndependent = true;
    for (const std::string_view neighbour : neighbours) {
      std::string_view line = rest.substr(0, rest.find('\n'));
      rest.remove_prefix(line.size() + 1);
      isIndependent = isIndependent && line.starts_with(neighbour);
      line.remove_prefix(std::min(line.size(), neighbour.size()));
      if (neighbour.empty()) alone = line;
      isIndependent = isIndependent && line == alone;
    }
    if (isIndependent && !alone.empty() && firstScalar(alone).length == alone.size())
      entry = encoded(firstScalar(alone).value);
  }
  return page;
}

/// Made when first needed; kept as long as the process lives.
const FoldingPage& foldingPage(char32_t character) {
  static std::array<std::atomic<const FoldingPage*>, 0x1100> pages;
  std::atomic<const FoldingPage*>& slot = pages[character >> 8];
  const FoldingPage* page = slot.load(std::memory_order_acquire);
  if (page) return *page;
  auto made = makeFoldingPage(character & ~char32_t(0xFF));
  return slot.compare_exchange_strong(page, made.get()) ? *made.release() : *page;
}

/// As foldAscii() for what is not ASCII, with room for twice the text: from two bytes or more comes
/// one character, four bytes at most. False, and nothing taken, when the table does not suffice.
bool foldByTable(std::string_view& text, char*& out) {
  std::string_view rest = text;
  char* end = out;
  while (!rest.empty() && !isAscii(rest[0])) {
    const Scalar next = firstScalar(rest);
    if (next.value == brokenByte) return false;
    const Encoded& entry = foldingPage(next.value)[next.value & 0xFF];
    if (entry.size == 0) return false;
    std::memcpy(end, entry.bytes.data(), entry.bytes.size());
    end += entry.size;
    rest.remove_prefix(next.length);
  }
  text = rest;
  out = end;
  return true;
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

bool containsIgnoringCase(std::string_view text, std::string_view needle, Casing casing) {
  return !needle.empty() &&
         caseFolded(text, casing).find(caseFolded(needle, casing)) != std::string::npos;
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

void appendFolded(std::string_view text, std::string& out, Casing casing) {
  if (casing == Casing::turkic)
    return appendFolded(withoutTurkicCapitals(text), out, Casing::common);
  std::size_t used = out.size();
  while (!text.empty()) {
    out.resize(std::max(out.size(), used + 2 * text.size()));
    char* end = out.data() + used;
    const char* const start = text.data();
    foldAscii(text, end);
    if (!foldByTable(text, end)) {
      // What comes next may change the last ASCII character, never the one before.
      const std::size_t shared = text.data() > start ? 1 : 0;
      const auto next = std::find_if(text.begin(), text.end(), isAscii);
      const auto length = static_cast<std::size_t>(next - text.begin());
      const std::string run = foldedBySystem({text.data() - shared, shared + length});
      used = static_cast<std::size_t>(end - out.data()) - shared;
      out.replace(used, run.size(), run);
      end = out.data() + used + run.size();
      text.remove_prefix(length);
    }
    used = static_cast<std::size_t>(end - out.data());
  }
  out.resize(used);
}

}  // namespace wakelatch::platform
