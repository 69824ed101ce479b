#include "Platform/Text.h"

#include <gtest/gtest.h>

#include <string>

#include "Platform/TextSystem.h"
#include "Platform/Utf8.h"

namespace wakelatch::platform {
namespace {

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
  const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
  const std::string text = "e\u0301" + family + "\r\n\xFF\xFEz";
  const std::string prefixes[] = {"", "e\u0301", "e\u0301" + family, "e\u0301" + family + "\r\n",
                                  "e\u0301" + family + "\r\n\xFF"};
  for (std::size_t count = 0; count < std::size(prefixes); ++count)
    EXPECT_EQ(firstCharacters(text, count), prefixes[count]) << count;
  EXPECT_EQ(firstCharacters(text, 6), text);
  EXPECT_EQ(firstCharacters(text, 1000), text);
}

TEST(Text, ContainsIgnoringCaseFollowsTheLocale) {
  EXPECT_FALSE(containsIgnoringCase("\u2500", "\x94", Casing::common));
  EXPECT_TRUE(containsIgnoringCase("is using \u00C9tat cpu", "\u00E9TAT CPU", Casing::common));
  EXPECT_TRUE(containsIgnoringCase("STRASSE", "stra\u00DFe", Casing::common));
  EXPECT_FALSE(containsIgnoringCase("etat", "\u00E9tat", Casing::common));
  EXPECT_FALSE(containsIgnoringCase("anything", "", Casing::common));
  EXPECT_TRUE(containsIgnoringCase("ACCESSIBILITY", "Accessibility", Casing::common));
  EXPECT_FALSE(containsIgnoringCase("ACCESSIBILITY", "Accessibility", Casing::turkic));
  EXPECT_TRUE(containsIgnoringCase("\u0130I\u0307I", "ii\u0131", Casing::turkic));
}

std::string folded(std::string_view text, Casing casing) {
  std::string result;
  appendFolded(text, result, casing);
  return result;
}

// Which texts the phrase is found in; both systems' libraries agree on this.
TEST(Text, FoldingTable) {
  struct Row {
    std::string_view phrase, text;
    bool common, turkic;
  };
  constexpr bool yes = true, no = false;
  const Row rows[] = {
      // Case and accents, in either form.
      {"to stop", "ESC TO STOP\u2026", yes, yes},
      {"Caf\u00E9", "cafe", yes, yes},
      {"cafe", "CAFE\u0301", yes, yes},
      {"\u1EC7", "e", yes, yes},
      {"\u00E5\u0437", "\u212B\u0417", yes, yes},
      {"\u03C3\u03B1\u03C2", "\u03A3\u0386\u03A3", yes, yes},
      {"\u0438\u0435", "\u0419\u0401", yes, yes},
      {"\u03C9k", "\u2126\u212A", yes, yes},
      {"=", "\u2260", yes, yes},
      // What looks like an accent but is part of the letter.
      {"o", "\u00F8", no, no},
      {"l", "\u0142", no, no},
      {"ae", "\u00E6", no, no},
      // I, with and without its dot.
      {"i", "I", yes, no},
      {"\u0131", "I", no, yes},
      {"i", "\u0130", yes, yes},
      {"i", "I\u0307", yes, yes},
      {"I", "\u0130", yes, no},
      {"i", "\u0131", no, no},
      // One letter for several.
      {"STRASSE", "stra\u00DFe", yes, yes},
      {"\u1E9E", "\u00DF", yes, yes},
      {"ef\uFB01", "effi", yes, yes},
      // Marks of other scripts make other letters; parts of a syllable make one.
      {"\u304B", "\u304C", no, no},
      {"\u304B", "\u304B\u3099", no, no},
      {"\u304C", "\u304B\u3099", yes, yes},
      {"\u0915\u093F", "\u0915", no, no},
      {"\uD558", "\uD55C", no, no},
      {"\uD558", "\u1112\u1161\u11AB", no, no},
      {"\uD55C", "\u1112\u1161\u11AB", yes, yes},
      // Widths and look-alikes stay apart, but have case.
      {"A", "\uFF21", no, no},
      {"\uFF41", "\uFF21", yes, yes},
      {"...", "\u2026", no, no},
      // Symbols; a variation selector is a mark.
      {"\u2500\u256E", "\u256D\u2500\u256E", yes, yes},
      {"\u2500", "\u2501", no, no},
      {"\u2714", "\u2714\uFE0F", yes, yes},
      {"\u2714\uFE0F", "\u2714", no, no},
      {"\u00A9", "\u00A9\uFE0F", yes, yes},
      {"\u00A9\uFE0F", "\u00A9", yes, yes},
      {"\U0001F44D", "\U0001F44D\U0001F3FD", yes, yes},
      // White space.
      {"a b c", "a\nb\tc", yes, yes},
      {"a b", "a\u0301\n\u0301b", yes, yes},
      {"a b", "a\rb", no, no},
      {"a b", "a\r\nb", no, no},
      {"a b", "a  b", no, no},
      {"a b", "a\u00A0b", no, no},
      // Bytes that are no UTF-8.
      {"a\xFF", "A\xFF", yes, yes},
      {"\xFE", "\xFF", no, no},
      {"\xE2", "\xC2", no, no},
      {"\x94", "\u2500", no, no},
      {"\xE2", "\u2500", no, no},
      {"\xE2\x94", "\xE2\x94\u2500", yes, yes},
  };
  for (const auto& [phrase, text, common, turkic] : rows) {
    const auto isFound = [phrase = phrase, text = text](Casing casing) {
      return folded(text, casing).find(folded(phrase, casing)) != std::string::npos;
    };
    EXPECT_EQ(isFound(Casing::common), common) << phrase << " in " << text;
    EXPECT_EQ(isFound(Casing::turkic), turkic) << phrase << " in " << text << ", Turkic";
  }
}

TEST(Text, FoldingTakesEveryCharacterAsTheSystemDoesAfterAnyKindOfLetter) {
  for (const std::string letter : {"", "E", "\u304B", "\u1112", "\uD558", "\U0001F44D"}) {
    std::string text;
    for (char32_t c = U'!'; c < 0x20000; ++c) {
      if (c == 0x3400) c = 0xA000;  // ideographs
      if (c == 0xAD00) c = 0xE000;  // syllables, surrogates
      text.append(letter).append(encoded(c)).append(" padding ");
    }
    EXPECT_TRUE(folded(text, Casing::common) == system::folded(text, system::Accents::drop))
        << letter;
  }
}

TEST(Text, FoldingGivesTheSameForATextCutBeforeAscii) {
  const std::string text =
      "aI\u0307\n\u0301\u2500e\u0301 \uD558\u11AB\xE2\x94z\u2714\uFE0FI\u00DF.";
  for (const Casing casing : {Casing::common, Casing::turkic}) {
    for (std::size_t cut = 0; cut < text.size(); ++cut) {
      if ((text[cut] & 0x80) != 0) continue;
      const std::string_view view = text;
      EXPECT_EQ(folded(view.substr(0, cut), casing) + folded(view.substr(cut), casing),
                folded(text, casing))
          << cut;
    }
  }
}

}  // namespace
}  // namespace wakelatch::platform
