#include "WakelatchCore/PhraseMatcher.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace wakelatch {
namespace {

/// Text is folded and searched in pieces that fit into the processor's first-level cache.
constexpr std::size_t pieceSize = 8192;

/// Needles are compared only where the hash of the text's next bytes is that of some needle's first
/// bytes; this many bytes are hashed.
constexpr std::size_t startSize = 4;
constexpr std::size_t startHashes = 1 << 16;

std::size_t hashOfStart(const char* text) {
  std::uint32_t start = 0;
  static_assert(sizeof start == startSize);
  std::memcpy(&start, text, startSize);
  return start * 0x9E3779B1U >> 16;  // the upper bits depend on all bits of `start`
}

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
    : casing_(casing), mayStart_(startHashes) {
  for (const Lists& lists : matchers) {
    matchers_.emplace_back();
    addCandidates(lists.activePhrases, PhraseMatchKind::active);
    addCandidates(lists.idlePhrases, PhraseMatchKind::idle);
  }
  std::sort(needles_.begin(), needles_.end());
  needles_.erase(std::unique(needles_.begin(), needles_.end()), needles_.end());
  for (const std::string& needle : needles_) {
    if (needle.size() >= startSize) mayStart_[hashOfStart(needle.data())] = true;
  }
}

void PhraseIndex::addCandidates(std::span<const std::string> phrases,
                                PhraseMatchKind (*result)(std::string)) {
  for (const std::string& phrase : phrases) {
    if (platform::trimmed(phrase).empty()) continue;
    std::string needle;
    platform::appendFolded(phrase, needle, casing_);
    if (needle.empty()) continue;
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
  for (const std::string& needle : needles_) {
    if (needle.size() < startSize && text.find(needle) != text.npos) found.insert(needle);
  }
  for (std::size_t at = 0; at + startSize <= text.size(); ++at) {
    if (!mayStart_[hashOfStart(text.data() + at)]) continue;
    const std::string_view rest = text.substr(at);
    auto needle = std::lower_bound(needles_.begin(), needles_.end(), rest.substr(0, 1));
    for (; needle != needles_.end() && needle->front() == rest.front(); ++needle) {
      if (rest.starts_with(*needle)) found.insert(*needle);
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
  // Copies the other list, so that this matcher stays intact if the constructor throws.
  *this = PhraseMatcher(std::move(phrases), idlePhrases_);
}

void PhraseMatcher::setIdlePhrases(std::vector<std::string> phrases) {
  *this = PhraseMatcher(activePhrases_, std::move(phrases));
}

PhraseMatchKind PhraseMatcher::match(std::string_view text) const {
  return index_.match(text).front();
}

}  // namespace wakelatch
