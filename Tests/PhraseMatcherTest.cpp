#include "WakelatchCore/PhraseMatcher.h"

#include <gtest/gtest.h>

namespace wakelatch {
namespace {

using Phrases = std::vector<std::string>;
const auto active = PhraseMatchKind::active, idle = PhraseMatchKind::idle;
const auto none = PhraseMatchKind::none();

TEST(PhraseMatcher, PrefersActivePhrasesThenEarlierOnes) {
  const PhraseMatcher matcher({" ", "Stop", "Stop generating", "Caf\u00E9 \u2026"},
                              {"\n", "", "Ask anything", "Ask"});
  using Row = std::pair<std::string_view, PhraseMatchKind>;
  for (const auto& [text, expected] :
       {Row{"ask anything: STOP\nGENERATING", active("Stop")}, Row{"unstoppable", active("Stop")},
        Row{"the cafe\t\u2026", active("Caf\u00E9 \u2026")}, Row{"ask any", idle("Ask")},
        Row{"Ask\tAnything", idle("Ask anything")}, Row{"sto p a s k  \n ", none}, Row{"", none}})
    EXPECT_EQ(matcher.match(text), expected) << text;
}

TEST(PhraseMatcher, FollowsItsLists) {
  PhraseMatcher matcher({"a"}, {"b"});
  matcher.setActivePhrases({"c"});
  EXPECT_EQ(matcher.match("abc"), active("c"));
  matcher.setIdlePhrases({" A "});
  EXPECT_EQ(matcher.match("b a b"), idle(" A "));
  EXPECT_TRUE(matcher == PhraseMatcher({"c"}, {" A "}) && matcher != PhraseMatcher({"c"}, {"A"}));
}

TEST(PhraseMatcher, FindsPhrasesWhereverTheyStand) {
  const std::string phrase = "\u00B7 esc to cancel)";
  const PhraseMatcher matcher({phrase}, {});
  for (const std::string filler : {"x", "\u2500"}) {
    std::string text;
    while (text.size() < 8130) text += filler;
    // A piece ends somewhere near each of these, before or inside the phrase.
    for (; text.size() < 8220; text += filler)
      EXPECT_EQ(matcher.match(text + phrase + filler), active(phrase)) << text.size();
  }
}

}  // namespace
}  // namespace wakelatch
