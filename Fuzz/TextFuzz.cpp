// Text services, against plain definitions and the system's library. The input is a text.
#include <array>
#include <string>

#include "Fuzz/Fuzz.h"
#include "Platform/Text.h"
#include "Platform/TextSystem.h"

using namespace wakelatch;
using namespace wakelatch::platform;
using fuzz::require;

namespace {

std::string folded(std::string_view text, Casing casing) {
  std::string result;
  appendFolded(text, result, casing);
  return result;
}

/// The table of well-formed sequences in the Unicode standard.
bool plainIsValidUtf8(std::string_view text) {
  struct Row {
    unsigned char lead[2], second[2];
    std::size_t length;
  };
  constexpr Row rows[] = {{{0x00, 0x7F}, {}, 1},           {{0xC2, 0xDF}, {0x80, 0xBF}, 2},
                          {{0xE0, 0xE0}, {0xA0, 0xBF}, 3}, {{0xE1, 0xEC}, {0x80, 0xBF}, 3},
                          {{0xED, 0xED}, {0x80, 0x9F}, 3}, {{0xEE, 0xEF}, {0x80, 0xBF}, 3},
                          {{0xF0, 0xF0}, {0x90, 0xBF}, 4}, {{0xF1, 0xF3}, {0x80, 0xBF}, 4},
                          {{0xF4, 0xF4}, {0x80, 0x8F}, 4}};
  const auto isIn = [](char c, const unsigned char(&range)[2]) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= range[0] && byte <= range[1];
  };
  while (!text.empty()) {
    std::size_t length = 0;
    for (const Row& row : rows) {
      if (!isIn(text[0], row.lead) || text.size() < row.length) continue;
      if (row.length > 1 && !isIn(text[1], row.second)) continue;
      length = row.length;
    }
    for (std::size_t i = 2; i < length; ++i) {
      if (!isIn(text[i], {0x80, 0xBF})) length = 0;
    }
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

/// Accents and case by the system, then line breaks.
std::string plainFolded(std::string_view text) {
  std::string result = system::folded(text, system::Accents::drop);
  for (char& c : result) {
    if (c == '\n' || c == '\t') c = ' ';
  }
  return result;
}

}  // namespace

FUZZ(text) {
  const bool isValid = isValidUtf8(text);
  require(isValid == plainIsValidUtf8(text), "UTF-8 is told as defined");
  for (const auto casing : {Casing::common, Casing::turkic}) {
    const std::string once = folded(text, casing);
    if (isValid) require(folded(once, casing) == once, "folding again changes nothing");
    if (isValid && casing == Casing::common)
      require(once == plainFolded(text), "folding is what the system does");
    int cuts = 4;
    for (std::size_t cut = 1; cut < text.size() && cuts > 0; ++cut) {
      if ((text[cut] & 0x80) != 0) continue;
      --cuts;
      std::string both = folded(text.substr(0, cut), casing);
      appendFolded(text.substr(cut), both, casing);
      require(both == once, "a text cut before ASCII folds alike");
    }
    require(containsIgnoringCase(text, text, casing) == !text.empty(), "a text contains itself");
  }

  const std::string lower = lowercased(text);
  require(lowercased(lower) == lower, "lower-casing again changes nothing");
  const std::string nfc = composed(text);
  require(composed(nfc) == nfc, "composing again changes nothing");
  require(isValidUtf8(lower) == isValid && isValidUtf8(nfc) == isValid, "UTF-8 stays UTF-8");

  const std::string_view inner = trimmed(text);
  require(trimmed(inner) == inner && trimmed(trimmedSpaces(text)) == inner,
          "trimmed ends are bare");
  require(trimmed(" \u2028\t" + std::string(inner) + "\u00A0\r\n") == inner, "white space goes");
  require(trimmedSpaces(trimmedSpaces(text)) == trimmedSpaces(text), "so do trimmed spaces");

  std::size_t before = 0;
  for (const unsigned count : {1u, 4u, 1000000u}) {
    const std::string_view start = firstCharacters(text, count);
    require(text.starts_with(start) && start.size() >= before,
            "characters are taken from the start");
    require(firstCharacters(start, count) == start, "there are no more of them");
    before = start.size();
  }
  require(before == text.size(), "all of them are the text");
}
