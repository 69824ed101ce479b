#include "Platform/Text.h"

#include <gtest/gtest.h>

#include "Platform/TextSystem.h"
#include "Platform/Utf8.h"

namespace wakelatch::platform {
namespace {

using enum Casing;

TEST(Text, LowercasedTakesEveryLetterAndKeepsBrokenBytes) {
  EXPECT_EQ(lowercased("Claude [7] \x7F"), "claude [7] \x7F");
  EXPECT_EQ(lowercased("\u212AELVIN \u00C9\u0414"), "kelvin \u00E9\u0434");
  EXPECT_EQ(lowercased("\u039F\u03A3 \u03A3\u0391"), "\u03BF\u03C2 \u03C3\u03B1");
  EXPECT_EQ(lowercased("\u0130I"), "i\u0307i");
  EXPECT_EQ(lowercased("A\xFF\xC3 \xED\xA0\x80\xC0\x80\xF4\x90\x80\x80\xC3"),
            "a\xFF\xC3 \xED\xA0\x80\xC0\x80\xF4\x90\x80\x80\xC3");
}

TEST(Text, IsValidUtf8IsStrict) {
  EXPECT_TRUE(isValidUtf8("more than sixteen of ASCII, \u00E9 \u20AC \U0010FFFF"));
  for (const std::string_view broken : {"\x80", "ok\xC3", "\xE2\x82x", "\xC0\x80", "\xE0\x9F\xBF",
                                        "\xF0\x8F\xBF\xBF", "\xED\xA0\x80", "\xF4\x90\x80\x80"})
    EXPECT_FALSE(isValidUtf8(broken)) << broken;
}

TEST(Text, TrimmedKnowsTwoKindsOfWhiteSpace) {
  const std::string spaces = " \t\u00A0\u1680\u2003\u202F\u205F\u3000";
  const std::string breaks = "\n\v\f\r\u0085\u2028\u2029";
  const std::string kept = "\u200Ba b\u200B\x80";
  EXPECT_EQ(trimmed(spaces + breaks + kept + breaks + spaces), kept);
  EXPECT_EQ(trimmedSpaces(spaces + kept + spaces), kept);
  EXPECT_EQ(trimmedSpaces(spaces + "a\r" + spaces), "a\r");
  EXPECT_EQ(trimmed(spaces + breaks), "");
}

TEST(Text, ComposedJoinsWhatBelongsTogether) {
  EXPECT_EQ(composed("e\u0301 \u1112\u1161\u11AB \u212A"), "\u00E9 \uD55C K");
  EXPECT_EQ(composed("a\xCC\u0301"), "a\xCC\u0301");
}

TEST(Text, FirstCharactersCountsAsAReaderDoes) {
  const std::string text = "e\u0301\U0001F468\u200D\U0001F469\u200D\U0001F467\r\n\xFF\xFEz";
  std::size_t count = 0;
  for (const std::size_t bytes : {0u, 3u, 21u, 23u, 24u, 25u, 26u, 26u})
    EXPECT_EQ(firstCharacters(text, count++), text.substr(0, bytes));
  EXPECT_EQ(firstCharacters(text, 1000), text);
}

TEST(Text, ContainsIgnoringCaseFollowsTheLocale) {
  EXPECT_FALSE(containsIgnoringCase("\u2500", "\x94", common));
  EXPECT_TRUE(containsIgnoringCase("is using \u00C9tat cpu", "\u00E9TAT CPU", common));
  EXPECT_FALSE(containsIgnoringCase("etat", "\u00E9tat", common));
  EXPECT_FALSE(containsIgnoringCase("anything", "", common));
  EXPECT_FALSE(containsIgnoringCase("ACCESSIBILITY", "Accessibility", turkic));
  EXPECT_TRUE(containsIgnoringCase("\u0130I\u0307I", "ii\u0131", turkic));
}

std::string folded(std::string_view text, Casing casing) {
  std::string result;
  appendFolded(text, result, casing);
  return result;
}

// Which phrase is found in which text. That single letters fold as the system has them is checked
// below, so these are what the system has to do.
TEST(Text, FoldingTable) {
  using In = std::pair<std::string_view, std::string_view>;
  using Rows = std::vector<In>;
  const auto check = [](const Rows& rows, bool inCommon, bool inTurkic) {
    for (const auto& [phrase, text] : rows)
      for (const auto& [casing, expected] : {std::pair(common, inCommon), {turkic, inTurkic}})
        EXPECT_EQ(folded(text, casing).find(folded(phrase, casing)) != std::string::npos, expected)
            << phrase << " in " << text << (casing == turkic ? ", Turkic" : "");
  };
  // Case and accents, one letter for several, parts of a syllable, symbols and their variants.
  check({In{"to stop", "ESC TO STOP\u2026"}, In{"Caf\u00E9", "cafe"}, In{"cafe", "CAFE\u0301"},
         In{"\u00E5\u0437", "\u212B\u0417"}, In{"\u03C3\u03B1\u03C2", "\u03A3\u0386\u03A3"},
         In{"i", "\u0130"}, In{"STRASSE", "stra\u00DFe"}, In{"ef\uFB01", "effi"},
         In{"\u304C", "\u304B\u3099"}, In{"\uD55C", "\u1112\u1161\u11AB"},
         In{"\u2500\u256E", "\u256D\u2500\u256E"}, In{"\u00A9", "\u00A9\uFE0F"},
         In{"\U0001F44D", "\U0001F44D\U0001F3FD"}, In{"a b c", "a\nb\tc"},
         In{"a b", "a\u0301\n\u0301b"}, In{"a\xFF", "A\xFF"}, In{"\xE2\x94", "\xE2\x94\u2500"}},
        true, true);
  // What only looks like an accent, like another letter or like a blank; parts of a character.
  check(
      {In{"o", "\u00F8"}, In{"i", "\u0131"}, In{"\u304B", "\u304C"}, In{"\u0915\u093F", "\u0915"},
       In{"\uD558", "\u1112\u1161\u11AB"}, In{"A", "\uFF21"}, In{"\u2500", "\u2501"},
       In{"\u2714\uFE0F", "\u2714"}, In{"a b", "a\r\nb"}, In{"a b", "a  b"}, In{"a b", "a\u00A0b"},
       In{"\xFE", "\xFF"}, In{"\xE2", "\xC2"}, In{"\x94", "\u2500"}, In{"\xE2", "\u2500"}},
      false, false);
  check({In{"i", "I"}, In{"I", "\u0130"}}, true, false);
  check({In{"\u0131", "I"}}, false, true);
}

TEST(Text, FoldingTakesEveryCharacterAsTheSystemDoesAfterAnyKindOfLetter) {
  for (const std::string letter : {"", "E", "\u304B", "\u1112", "\uD558", "\U0001F44D"}) {
    std::string text;
    for (char32_t c = U'!'; c < 0x20000; ++c) {
      if (c == 0x3400) c = 0xA000;  // ideographs
      if (c == 0xAD00) c = 0xE000;  // syllables, surrogates
      text.append(letter).append(encoded(c)).append(" padding ");
    }
    EXPECT_TRUE(folded(text, common) == system::folded(text, system::Accents::drop)) << letter;
  }
}

}  // namespace
}  // namespace wakelatch::platform
