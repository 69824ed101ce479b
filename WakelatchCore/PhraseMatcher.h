// Searches a window's text for phrases that agents show while they work or wait, regardless of
// case, accents and line breaks. Matchers are values; matching is const and may run on any thread.
// It takes one pass over the text for any number of phrases. Only lack of memory makes it throw.
#pragma once

#include <cstddef>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Platform/Text.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// What a text shows: an agent at work, a waiting one or neither, and the phrase that shows it.
struct PhraseMatchKind {
  ///@{
  /// A text with phrases of both kinds is `active`.
  enum class Case { none, active, idle };
  Case kind = Case::none;
  ///@}
  std::string phrase = {};  ///< as written in the matcher's list; empty for none

  ///@{
  /// Make a result of each kind.
  static PhraseMatchKind active(std::string phrase) { return {Case::active, std::move(phrase)}; }
  static PhraseMatchKind idle(std::string phrase) { return {Case::idle, std::move(phrase)}; }
  static PhraseMatchKind none() { return {}; }
  ///@}

  friend bool operator==(const PhraseMatchKind&, const PhraseMatchKind&) = default;
};

/// Many matchers over one text. The phrases are folded (normalised for comparison) once, and each
/// text once for all matchers.
class PhraseIndex {
 public:
  /// One matcher's lists. A phrase of white space alone is never found.
  struct Lists {
    ///@{
    /// In priority order.
    std::span<const std::string> activePhrases;
    std::span<const std::string> idlePhrases;
    ///@}
  };

  /// Copies what it needs of the lists.
  explicit PhraseIndex(std::span<const Lists> matchers,
                       platform::Casing casing = platform::userCasing());

  /// The result of PhraseMatcher::match() for each matcher, in their order.
  std::vector<PhraseMatchKind> match(std::string_view text) const;

 private:
  struct Candidate {
    std::string needle;  ///< the folded phrase
    PhraseMatchKind result;
  };
  using Found = std::set<std::string_view>;

  void addCandidates(std::span<const std::string> phrases,
                     PhraseMatchKind (*result)(std::string phrase));
  void search(std::string_view text, Found& found) const;

  platform::Casing casing_;
  std::vector<std::vector<Candidate>> matchers_;  ///< the candidates of each, best first
  std::vector<std::string> needles_;              ///< those of all matchers, sorted and distinct
  std::size_t longest_ = 0;                       ///< bytes of the longest needle
  std::vector<bool> mayStart_;  ///< by hash: whether a needle begins with bytes of this hash
};

/// One agent's phrases.
class PhraseMatcher {
 public:
  /// Both lists are in priority order. A phrase of white space alone is never found.
  PhraseMatcher(std::vector<std::string> activePhrases, std::vector<std::string> idlePhrases);

  ///@{
  /// The lists. Setting one costs as much as making a new matcher.
  const std::vector<std::string>& activePhrases() const { return activePhrases_; }
  const std::vector<std::string>& idlePhrases() const { return idlePhrases_; }
  void setActivePhrases(std::vector<std::string> phrases);
  void setIdlePhrases(std::vector<std::string> phrases);
  ///@}

  /// The first active phrase in the text, else the first idle one, else none. A phrase is found
  /// inside a longer word too.
  PhraseMatchKind match(std::string_view text) const;

  /// Two matchers with the same phrases in the same order are equal.
  friend bool operator==(const PhraseMatcher& a, const PhraseMatcher& b) {
    return a.activePhrases_ == b.activePhrases_ && a.idlePhrases_ == b.idlePhrases_;
  }

 private:
  std::vector<std::string> activePhrases_;
  std::vector<std::string> idlePhrases_;
  PhraseIndex index_;  ///< of these lists
};

}  // namespace wakelatch
#pragma GCC visibility pop
