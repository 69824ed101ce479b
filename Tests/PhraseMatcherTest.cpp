#include "WakelatchCore/PhraseMatcher.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

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
  const Phrases phrases = {"\u00B7 esc to cancel)", "zz"};
  const PhraseMatcher matcher(phrases, {});
  for (const std::string filler : {"x", "\u2500"}) {
    std::string text;
    while (text.size() < 40'000) text += filler;
    // A piece ends somewhere near each of these, before or inside the phrase.
    for (std::size_t place = 8130; place < 8220; ++place) {
      std::string copy = text;
      copy.replace(place / filler.size() * filler.size(), 0, phrases[0]);
      ASSERT_EQ(matcher.match(copy), active(phrases[0])) << place;
    }
    EXPECT_EQ(matcher.match(text + "zZ"), active("zz"));
    EXPECT_EQ(matcher.match("Zz" + text), active("zz"));
    EXPECT_EQ(matcher.match(text + "z"), none);
  }
}

TEST(PhraseIndex, FindsWhatEachMatcherWouldByPlainSearch) {
  std::mt19937 random(1);
  const auto randomText = [&](std::size_t most) {
    std::string text;
    for (std::size_t length = random() % (most + 1); length > 0; --length)
      text += std::array{"a", "B", "\u00E4", " ", "\n", "\u2500", "\xFF"}[random() % 7];
    return text;
  };
  const auto isIn = [](std::string_view text, std::string_view phrase) {
    std::string folds[2];
    platform::appendFolded(text, folds[0]);
    platform::appendFolded(phrase, folds[1]);
    return !platform::trimmed(phrase).empty() && folds[0].find(folds[1]) != std::string::npos;
  };
  for (int round = 0; round < 300; ++round) {
    const std::string text = randomText(60);
    std::array<std::array<Phrases, 2>, 9> phrases;
    std::vector<PhraseIndex::Lists> lists;
    std::vector<PhraseMatchKind> expected, single;
    for (auto& [actives, idles] : phrases) {
      PhraseMatchKind best = none;
      for (auto* list : {&idles, &actives}) {
        list->resize(random() % 4);
        for (std::string& phrase : *list) phrase = randomText(7);
        const auto first = std::find_if(list->begin(), list->end(),
                                        [&](const auto& phrase) { return isIn(text, phrase); });
        if (first != list->end()) best = list == &idles ? idle(*first) : active(*first);
      }
      lists.push_back({actives, idles});
      expected.push_back(best);
      single.push_back(PhraseMatcher(actives, idles).match(text));
    }
    EXPECT_EQ(PhraseIndex(lists).match(text), expected);
    EXPECT_EQ(single, expected);
  }
}

}  // namespace
}  // namespace wakelatch
