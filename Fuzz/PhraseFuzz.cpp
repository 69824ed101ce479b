// Phrases in texts, against the definition: fold the text, fold each phrase, take the first that
// the text contains. The input is "text|phrase|phrase...". A phrase with '?' before it is an idle
// one, one with '/' the first active phrase of another matcher, any other an active one. In the
// text '^' and '~' are replaced by a filling (letters or box lines) up to where the matcher cuts
// the text; the next character says how many bytes the filling falls short of that.
#include <deque>
#include <string>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "Platform/Text.h"
#include "WakelatchCore/PhraseMatcher.h"

using namespace wakelatch;
using fuzz::require;

namespace {

struct Matcher {
  std::vector<std::string> active, idle;
};

/// The text with its fillings, each up to 63 bytes shorter than the piece that the matcher folds.
std::string expanded(std::string_view text) {
  constexpr std::size_t pieceSize = 8192;
  std::string result;
  int left = 2;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if ((c != '^' && c != '~') || at + 1 == text.size() || --left < 0) {
      result += c;
      continue;
    }
    const std::size_t piece = result.size() / pieceSize + 1;
    const std::size_t end = piece * pieceSize - static_cast<unsigned char>(text[++at]) % 64;
    while (result.size() < end) result += c == '^' ? "x" : "\u2500";
  }
  return result;
}

std::string folded(std::string_view text, platform::Casing casing) {
  std::string result;
  platform::appendFolded(text, result, casing);
  return result;
}

PhraseMatchKind plainMatch(const Matcher& matcher, const std::string& foldedText,
                           platform::Casing casing) {
  const auto isFound = [&](const std::string& phrase) {
    return !platform::trimmed(phrase).empty() &&
           foldedText.find(folded(phrase, casing)) != std::string::npos;
  };
  for (const std::string& phrase : matcher.active) {
    if (isFound(phrase)) return PhraseMatchKind::active(phrase);
  }
  for (const std::string& phrase : matcher.idle) {
    if (isFound(phrase)) return PhraseMatchKind::idle(phrase);
  }
  return PhraseMatchKind::none();
}

}  // namespace

FUZZ(input) {
  auto [first, rest] = fuzz::cut(input, '|');
  const std::string text = expanded(first);
  std::deque<Matcher> matchers(1);
  while (!rest.empty()) {
    auto [phrase, others] = fuzz::cut(rest, '|');
    rest = others;
    if (phrase.starts_with('?')) {
      matchers.back().idle.emplace_back(phrase.substr(1));
    } else {
      if (phrase.starts_with('/')) matchers.emplace_back();
      matchers.back().active.emplace_back(phrase.substr(phrase.starts_with('/')));
    }
  }
  std::vector<PhraseIndex::Lists> lists;
  lists.reserve(matchers.size());
  for (const Matcher& matcher : matchers) lists.push_back({matcher.active, matcher.idle});

  for (const auto casing : {platform::Casing::common, platform::Casing::turkic}) {
    if (casing == platform::Casing::turkic && text.size() > first.size()) continue;  // slow
    const std::string foldedText = folded(text, casing);
    std::vector<PhraseMatchKind> expected;
    expected.reserve(matchers.size());
    for (const Matcher& matcher : matchers)
      expected.push_back(plainMatch(matcher, foldedText, casing));
    require(PhraseIndex(lists, casing).match(text) == expected, "matches are as defined");
    if (casing != platform::userCasing()) continue;
    const PhraseMatcher matcher(matchers.front().active, matchers.front().idle);
    require(matcher.match(text) == expected.front(), "a matcher alone finds what the index does");
  }
}
