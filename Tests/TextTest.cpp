#include "Platform/Text.h"

#include <gtest/gtest.h>

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
  EXPECT_TRUE(containsIgnoringCase("is using \u00C9tat cpu", "\u00E9TAT CPU", Casing::common));
  EXPECT_TRUE(containsIgnoringCase("STRASSE", "stra\u00DFe", Casing::common));
  EXPECT_FALSE(containsIgnoringCase("etat", "\u00E9tat", Casing::common));
  EXPECT_FALSE(containsIgnoringCase("anything", "", Casing::common));
  EXPECT_TRUE(containsIgnoringCase("ACCESSIBILITY", "Accessibility", Casing::common));
  EXPECT_FALSE(containsIgnoringCase("ACCESSIBILITY", "Accessibility", Casing::turkic));
  EXPECT_TRUE(containsIgnoringCase("\u0130I\u0307I", "ii\u0131", Casing::turkic));
}

}  // namespace
}  // namespace wakelatch::platform
