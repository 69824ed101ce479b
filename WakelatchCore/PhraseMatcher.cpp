#include "WakelatchCore/PhraseMatcher.h"

#include <algorithm>
#include <bit>

namespace wakelatch {
namespace {

/// Text is folded and searched in pieces that stay in the processor's nearest cache.
constexpr std::size_t pieceSize = 8192;

/// Takes a piece off the front of `text`, cut where folding allows: before an ASCII character.
std::string_view takePiece(std::string_view& text) {
  std::size_t size = std::min(pieceSize, text.size());
  while (size < text.size() && (text[size] & 0x80) != 0) ++size;
  const std::string_view piece = text.substr(0, size);
  text.remove_prefix(size);
  return piece;
}

PhraseIndex indexOf(const std::vector<std::string>& active, const std::vector<std::string>& idle) {
  const PhraseIndex::Lists lists[] = {{active, idle}};
  return PhraseIndex(lists);
}

}  // namespace

// ----------------------------------------------------------------------------------------- index

PhraseIndex::PhraseIndex(std::span<const Lists> matchers, platform::Casing casing)
    : casing_(casing) {
  for (const Lists& lists : matchers) {
    matchers_.emplace_back();
    addCandidates(lists.activePhrases, PhraseMatchKind::active);
    addCandidates(lists.idlePhrases, PhraseMatchKind::idle);
  }
  std::sort(needles_.begin(), needles_.end());
  needles_.erase(std::unique(needles_.begin(), needles_.end()), needles_.end());
  for (std::size_t group = 0; group < platform::PrefixFilter::groups; ++group) {
    for (std::size_t n = firstOfGroup(group); n < firstOfGroup(group + 1); ++n)
      filter_.add(needles_[n], group);
  }
}

void PhraseIndex::addCandidates(std::span<const std::string> phrases,
                                PhraseMatchKind (*result)(std::string)) {
  for (const std::string& phrase : phrases) {
    if (platform::trimmed(phrase).empty()) continue;
    std::string needle;
    platform::appendFolded(phrase, needle, casing_);
    longest_ = std::max(longest_, needle.size());
    needles_.push_back(needle);
    matchers_.back().push_back({std::move(needle), result(phrase)});
  }
}

std::vector<PhraseMatchKind> PhraseIndex::match(std::string_view text) const {
  Found found;
  const auto isFound = [&](const Candidate& candidate) { return found.contains(candidate.needle); };
  const auto isDecided = [&](const std::vector<Candidate>& candidates) {
    return candidates.empty() || isFound(candidates.front());
  };
  std::string window;  // a folded piece, after the end of the one before
  while (!text.empty() && !std::all_of(matchers_.begin(), matchers_.end(), isDecided)) {
    platform::appendFolded(takePiece(text), window, casing_);
    search(window, found);
    window.erase(0, window.size() - std::min(window.size(), longest_));
  }

  std::vector<PhraseMatchKind> results;
  for (const std::vector<Candidate>& candidates : matchers_) {
    const auto best = std::find_if(candidates.begin(), candidates.end(), isFound);
    results.push_back(best == candidates.end() ? PhraseMatchKind::none() : best->result);
  }
  return results;
}

void PhraseIndex::search(std::string_view text, Found& found) const {
  std::vector<platform::PrefixFilter::Candidate> places;
  filter_.search(text, places);
  for (auto [position, groups] : places) {
    for (; groups != 0; groups &= groups - 1) {
      const auto group = static_cast<std::size_t>(std::countr_zero(groups));
      for (std::size_t n = firstOfGroup(group); n < firstOfGroup(group + 1); ++n) {
        if (text.substr(position).starts_with(needles_[n])) found.insert(needles_[n]);
      }
    }
  }
}

// --------------------------------------------------------------------------------------- matcher

PhraseMatcher::PhraseMatcher(std::vector<std::string> activePhrases,
                             std::vector<std::string> idlePhrases)
    : activePhrases_(std::move(activePhrases)),
      idlePhrases_(std::move(idlePhrases)),
      index_(indexOf(activePhrases_, idlePhrases_)) {}

void PhraseMatcher::setActivePhrases(std::vector<std::string> phrases) {
  *this = PhraseMatcher(std::move(phrases), idlePhrases_);  // a copy, should there be no memory
}

void PhraseMatcher::setIdlePhrases(std::vector<std::string> phrases) {
  *this = PhraseMatcher(activePhrases_, std::move(phrases));
}

PhraseMatchKind PhraseMatcher::match(std::string_view text) const {
  return index_.match(text).front();
}

}  // namespace wakelatch
