#include "WakelatchCore/FileActivityProbe.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

#include "Platform/Directory.h"

namespace wakelatch {
namespace {

using platform::DirectoryEntry, platform::EntryKind;

std::string joined(const std::string& directory, const char* name) {
  const bool needsSlash = !directory.empty() && directory.back() != '/';
  return directory + (needsSlash ? "/" : "") + name;
}

struct Component {
  enum class Kind { name, wildcard, anyLevels, end };
  Kind kind;
  std::string text = {};
  platform::Wildcard wildcard{text};
};

/// Indices of components in a PatternList, ascending: what several patterns look for next.
using Positions = std::vector<std::size_t>;

/// Several patterns, one after another, each closed by an `end`.
class PatternList {
 public:
  explicit PatternList(const std::vector<std::string>& patterns) {
    for (const std::string& pattern : patterns) {
      if (pattern.find('\0') != std::string::npos) continue;  // no entry has such a name
      add(starts_, parse(pattern));
    }
  }

  const Positions& starts() const { return starts_; }
  const Component& operator[](std::size_t position) const { return components_[position]; }

  /// Adds `position`, and what follows it where "**" stands for no level at all. Positions must
  /// come in ascending order; one may come twice.
  void add(Positions& positions, std::size_t position) const {
    while (positions.empty() || positions.back() < position) {
      positions.push_back(position);
      if (components_[position].kind != Component::Kind::anyLevels) return;
      ++position;
    }
  }

 private:
  /// Where the pattern starts among the components.
  std::size_t parse(std::string_view pattern) {
    const std::size_t start = components_.size();
    if (pattern.substr(0, 2) == "~/") pattern.remove_prefix(2);
    while (!pattern.empty()) {
      const std::string_view text = pattern.substr(0, pattern.find('/'));
      if (!text.empty()) components_.push_back({kindOf(text), std::string(text)});
      pattern.remove_prefix(std::min(text.size() + 1, pattern.size()));
    }
    components_.push_back({Component::Kind::end});
    return start;
  }

  static Component::Kind kindOf(std::string_view text) {
    if (text == "**") return Component::Kind::anyLevels;
    return text.find('*') == std::string_view::npos ? Component::Kind::name
                                                    : Component::Kind::wildcard;
  }

  std::vector<Component> components_;
  Positions starts_;
};

/// One pass over the entries that any of the patterns can reach. All patterns go together: each
/// entry carries the positions that they reach it with, so no directory is listed twice.
class Walk {
 public:
  /// Receives each match once: the path of its directory, its name, its time.
  using Found = std::function<void(const std::string&, const char*, Timestamp)>;

  Walk(const PatternList& patterns, std::int64_t maxDepth, const Found& found)
      : patterns_(patterns), maxDepth_(maxDepth), found_(found) {}

  void run(std::string home) {
    if (maxDepth_ < 0 || home.empty()) return;
    while (home.size() > 1 && home.back() == '/') home.pop_back();
    const Place above{"", -1, {}};
    reach(above, home.c_str(), {home.c_str()}, patterns_.starts());
    while (!pending_.empty()) {
      const Place next = std::move(pending_.back());
      pending_.pop_back();
      enter(next);
    }
  }

 private:
  /// A directory to be looked into.
  struct Place {
    std::string path;
    std::int64_t depth;   ///< levels below home, which is at 0
    Positions positions;  ///< where the patterns stand whose ways have led there
  };

  /// Lists a directory if a pattern asks for that, and goes to what the patterns name there.
  void enter(const Place& place) {
    std::map<std::string_view, EntryKind> named;
    bool lists = false;
    for (const std::size_t position : place.positions) {
      const Component& component = patterns_[position];
      if (component.kind == Component::Kind::name) {
        named.try_emplace(component.text, EntryKind::unlisted);
      } else if (component.kind != Component::Kind::end) {
        lists = true;
      }
    }
    if (lists) {
      platform::forEachEntry(place.path, [&](const DirectoryEntry& entry) {
        if (const auto same = named.find(entry.path); same != named.end()) {
          same->second = entry.kind;  // gone to below, for all patterns at once
        } else {
          reach(place, entry.path, entry, advanced(place.positions, entry.path, entry.kind));
        }
      });
    }
    for (const auto& [text, kind] : named) {
      const char* name = text.data();  // the whole of a component's text
      const std::string path = joined(place.path, name);
      reach(place, name, {path.c_str(), kind}, advanced(place.positions, name, kind));
    }
  }

  /// From the positions of a directory those of one entry. Only its name leads to an entry that
  /// was not listed.
  Positions advanced(const Positions& positions, const char* name, EntryKind kind) const {
    Positions next;
    for (const std::size_t position : positions) {
      const Component& component = patterns_[position];
      switch (component.kind) {
        case Component::Kind::name:
          if (component.text == name) patterns_.add(next, position + 1);
          break;
        case Component::Kind::wildcard:
          if (kind != EntryKind::unlisted && component.wildcard.matches(name)) {
            patterns_.add(next, position + 1);
          }
          break;
        case Component::Kind::anyLevels:
          if (kind == EntryKind::directory) patterns_.add(next, position);
          break;
        case Component::Kind::end:
          break;
      }
    }
    return next;
  }

  /// Reports an entry of `directory` if a pattern ends there, and plans to enter it if one leads
  /// on.
  void reach(const Place& directory, const char* name, const DirectoryEntry& entry,
             const Positions& positions) {
    const auto ends = std::count_if(positions.begin(), positions.end(), [this](std::size_t at) {
      return patterns_[at].kind == Component::Kind::end;
    });
    if (ends > 0) {
      if (const auto time = entry.modificationTime()) found_(directory.path, name, *time);
    }
    const bool leadsOn = static_cast<std::size_t>(ends) < positions.size();
    const std::int64_t depth = directory.depth + 1;
    if (leadsOn && entry.kind != EntryKind::other && depth < maxDepth_) {
      pending_.push_back({joined(directory.path, name), depth, positions});
    }
  }

  const PatternList& patterns_;
  const std::int64_t maxDepth_;
  const Found& found_;
  std::vector<Place> pending_;
};

}  // namespace

FileActivityProbe::FileActivityProbe(std::filesystem::path home, std::int64_t maxDepth)
    : home_(std::move(home)), maxDepth_(maxDepth) {}

std::optional<Timestamp> FileActivityProbe::newestModification(
    const std::vector<std::string>& patterns) const {
  std::optional<Timestamp> newest;
  const PatternList list(patterns);
  Walk(list, maxDepth_, [&newest](const std::string&, const char*, Timestamp time) {
    newest = newest ? std::max(*newest, time) : time;
  }).run(home_.string());
  return newest;
}

std::vector<Timestamp> FileActivityProbe::modificationDates(
    const std::vector<std::string>& patterns) const {
  std::vector<Timestamp> times;
  for (const auto& [path, time] : sessionModifications(patterns)) times.push_back(time);
  return times;
}

ModificationsByPath FileActivityProbe::sessionModifications(
    const std::vector<std::string>& patterns) const {
  std::vector<std::pair<std::string, Timestamp>> matches;
  const PatternList list(patterns);
  Walk(list, maxDepth_, [&matches](const std::string& directory, const char* name, Timestamp time) {
    matches.emplace_back(joined(directory, name), time);
  }).run(home_.string());
  // Built at once: a table that grows would be scattered over memory again and again.
  return {std::make_move_iterator(matches.begin()), std::make_move_iterator(matches.end()),
          matches.size()};
}

}  // namespace wakelatch
