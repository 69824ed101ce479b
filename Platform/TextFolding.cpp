#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>

#include "Platform/Text.h"
#include "Platform/TextSystem.h"
#include "Platform/Utf8.h"

namespace wakelatch::platform {
namespace {

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

/// `text` as the system folds it. Broken bytes take a form that is no part of any character's, lest
/// one is found inside a character.
std::string foldedBySystem(std::string_view text, system::Accents accents) {
  std::string result;
  forEachRun(text, [&](std::string_view run, bool isValid) {
    if (isValid) {
      result += system::folded(run, accents);
      return;
    }
    for (const char byte : run) {
      result += static_cast<char>(0xF8 | (byte >> 6 & 1));
      result += static_cast<char>(0x80 | (byte & 0x3F));
    }
  });
  return result;
}

std::string caseFolded(std::string_view text, Casing casing) {
  return foldedBySystem(casing == Casing::turkic ? withoutTurkicCapitals(text) : std::string(text),
                        system::Accents::keep);
}

// What follows is foldedBySystem() without accents and line breaks, for megabytes.

constexpr char asciiFolded(char c) {
  return c == '\n' || c == '\t' ? ' ' : asciiLowercased(c);
}

/// Characters for the processor's vector instructions.
using Sixteen = signed char __attribute__((vector_size(16)));

/// asciiFolded() of each; what is not ASCII stays.
Sixteen sixteenFolded(Sixteen c) {
  const Sixteen capitals = (c >= 'A') & (c <= 'Z');
  const Sixteen breaks = (c == '\n') | (c == '\t');
  return ((c | (capitals & 0x20)) & ~breaks) | (breaks & ' ');
}

/// Folds the ASCII that `text` starts with: takes it off `text` and moves `out` past the result.
/// `out` has room for the whole text; what lies behind the result is overwritten.
void foldAscii(std::string_view& text, char*& out) {
  static_assert(std::endian::native == std::endian::little, "counts bytes from the lowest");
  const auto advance = [&](std::size_t length) {
    text.remove_prefix(length);
    out += length;
  };
  while (text.size() >= sizeof(Sixteen)) {
    Sixteen characters;
    std::memcpy(&characters, text.data(), sizeof characters);
    characters = sixteenFolded(characters);
    std::memcpy(out, &characters, sizeof characters);

    std::array<std::uint64_t, 2> tops;  // the bits that ASCII has not
    std::memcpy(tops.data(), text.data(), sizeof characters);
    for (std::uint64_t& eight : tops) eight &= 0x8080808080808080;
    if ((tops[0] | tops[1]) != 0) {
      const std::size_t half = tops[0] == 0 ? 1 : 0;
      return advance(8 * half + static_cast<std::size_t>(std::countr_zero(tops[half])) / 8);
    }
    advance(sizeof characters);
  }
  while (!text.empty() && isAscii(text[0])) {
    *out = asciiFolded(text[0]);
    advance(1);
  }
}

/// What each of 256 neighbouring characters folds to. Empty for those that fold to several
/// characters, or together with the one before, as accents and parts of syllables do.
using FoldingPage = std::array<Encoded, 256>;

std::unique_ptr<const FoldingPage> makeFoldingPage(char32_t first) {
  // What takes a mark or a part of a syllable: a Latin letter, a Korean initial, a Korean syllable.
  constexpr std::string_view neighbours[] = {"a", "\u1100", "\uAC00"};
  std::string lines;  // for one call to the system instead of a thousand
  for (char32_t c = first; c < first + 256; ++c) {
    const Encoded character = c < 0x80 ? Encoded() : encoded(c);
    lines.append(character).append("\n");
    for (const std::string_view neighbour : neighbours)
      lines.append(neighbour).append(character).append("\n");
  }
  lines = system::folded(lines, system::Accents::drop);

  std::string_view rest = lines;
  const auto takeLine = [&rest] {
    const std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(line.size() + 1);
    return line;
  };
  auto page = std::make_unique<FoldingPage>();
  for (Encoded& entry : *page) {
    const std::string_view alone = takeLine();
    bool isIndependent = true;
    for (const std::string_view neighbour : neighbours) {
      if (takeLine() != std::string(neighbour).append(alone)) isIndependent = false;
    }
    if (alone.empty() || !isIndependent) continue;
    const Scalar character = firstScalar(alone);
    if (character.length == alone.size()) entry = encoded(character.value);
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

/// As foldAscii(), for what is not ASCII. `out` needs room for twice the text: two bytes or more
/// become one character of at most four bytes. Returns false and takes nothing when the table does
/// not suffice.
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

bool containsIgnoringCase(std::string_view text, std::string_view needle, Casing casing) {
  return !needle.empty() &&
         caseFolded(text, casing).find(caseFolded(needle, casing)) != std::string::npos;
}

void appendFolded(std::string_view text, std::string& out, Casing casing) {
  if (casing == Casing::turkic)
    return appendFolded(withoutTurkicCapitals(text), out, Casing::common);
  std::size_t used = out.size();
  while (!text.empty()) {
    out.resize(std::max(out.size(), used + 2 * text.size()));
    char* end = out.data() + used;
    foldAscii(text, end);
    if (!foldByTable(text, end)) {
      // What comes next may change the character before it, but none before that.
      const std::ptrdiff_t shared = end > out.data() + used ? 1 : 0;
      const auto next = std::find_if(text.begin(), text.end(), isAscii);
      const auto length = static_cast<std::size_t>(next - text.begin());
      std::string run(end - shared, end);
      run = foldedBySystem(run.append(text.substr(0, length)), system::Accents::drop);
      used = static_cast<std::size_t>(end - shared - out.data());
      out.replace(used, run.size(), run);
      end = out.data() + used + run.size();
      text.remove_prefix(length);
    }
    used = static_cast<std::size_t>(end - out.data());
  }
  out.resize(used);
}

}  // namespace wakelatch::platform
