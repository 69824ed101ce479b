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

using platform::Directory;

void appendComponent(std::string& path, std::string_view name) {
  if (!path.empty() && path.back() != '/') path += '/';
  path += name;
}

struct Component {
  enum class Kind { name, wildcard, anyLevels, end };
  Kind kind;
  std::string text = {};
  platform::Wildcard wildcard{text};
};

/// Places in a PatternList's components, ascending. An entry's are where the patterns stand once
/// their way has led there.
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
/// entry carries the positions that they reach it with.
class Walk {
 public:
  /// Receives each match once: the path of its directory, its name, its time.
  using Found = std::function<void(std::string_view, std::string_view, Timestamp)>;

  Walk(const PatternList& patterns, std::int64_t maxDepth, const Found& found)
      : patterns_(patterns), maxDepth_(maxDepth), found_(found) {}

  void run(std::string home) {
    if (maxDepth_ < 0) return;
    while (home.size() > 1 && home.back() == '/') home.pop_back();
    levels_.push_back({Directory::working()});
    reach(home.c_str(), Directory::EntryKind::unlisted, patterns_.starts());
    while (!levels_.empty()) {
      if (levels_.back().pending.empty()) {
        leave();
      } else {
        enterNext();
      }
    }
  }

 private:
  /// More than the usual bound on depth, far less than the usual bound on descriptors.
  static constexpr std::size_t maxOpenDirectories = 32;

  /// A directory to be entered, with the positions that lead on from it.
  struct Pending {
    std::string name;
    Positions positions;
  };

  /// A directory on the way down. The first is the one that `home` is opened from, so the entries
  /// of level n are n levels below `home`, which is the entry of level 0.
  struct Level {
    Directory directory;
    std::string name = {};
    std::size_t pathLength = 0;  ///< of `path_`, up to this directory
    std::vector<Pending> pending = {};
  };

  void enterNext() {
    Pending next = std::move(levels_.back().pending.back());
    levels_.back().pending.pop_back();
    reopen();
    Directory directory = levels_.back().directory.open(next.name.c_str());
    if (!directory.isOpen()) return;
    appendComponent(path_, next.name);
    levels_.push_back({std::move(directory), std::move(next.name), path_.size()});
    closeAncestorOf(levels_.size() - 1);
    visitEntries(next.positions);
  }

  void leave() {
    levels_.pop_back();
    path_.resize(levels_.empty() ? 0 : levels_.back().pathLength);
  }

  void closeAncestorOf(std::size_t level) {
    if (level > maxOpenDirectories) levels_[level - maxOpenDirectories].directory.close();
  }

  /// Opens the last level's directory again if it was closed for the sake of those below it. Where
  /// that fails, what is pending there stays unopened too.
  void reopen() {
    std::size_t level = levels_.size() - 1;
    while (!levels_[level].directory.isOpen()) --level;
    while (++level < levels_.size()) {
      levels_[level].directory = levels_[level - 1].directory.open(levels_[level].name.c_str());
      if (!levels_[level].directory.isOpen()) return;
      closeAncestorOf(level);
    }
  }

  /// Lists the last level's directory if a pattern asks for that, and goes to what they name there.
  void visitEntries(const Positions& positions) {
    std::map<std::string_view, Directory::EntryKind> named;
    bool lists = false;
    for (const std::size_t position : positions) {
      const Component& component = patterns_[position];
      if (component.kind == Component::Kind::name) {
        named.try_emplace(component.text, Directory::EntryKind::unlisted);
      } else if (component.kind != Component::Kind::end) {
        lists = true;
      }
    }
    if (lists) {
      levels_.back().directory.forEachEntry([&](const char* name, Directory::EntryKind kind) {
        if (const auto entry = named.find(name); entry != named.end()) {
          entry->second = kind;  // gone to below, for all patterns at once
        } else {
          reach(name, kind, advanced(positions, name, kind));
        }
      });
    }
    for (const auto& [name, kind] : named) {
      reach(name.data(), kind, advanced(positions, name.data(), kind));
    }
  }

  /// From the positions of a directory those of one entry. Only its name leads to an entry that
  /// was not listed.
  const Positions& advanced(const Positions& positions, const char* name,
                            Directory::EntryKind kind) {
    advanced_.clear();
    for (const std::size_t position : positions) {
      const Component& component = patterns_[position];
      switch (component.kind) {
        case Component::Kind::name:
          if (component.text == name) patterns_.add(advanced_, position + 1);
          break;
        case Component::Kind::wildcard:
          if (kind != Directory::EntryKind::unlisted && component.wildcard.matches(name)) {
            patterns_.add(advanced_, position + 1);
          }
          break;
        case Component::Kind::anyLevels:
          if (kind == Directory::EntryKind::directory) patterns_.add(advanced_, position);
          break;
        case Component::Kind::end:
          break;
      }
    }
    return advanced_;
  }

  /// Reports an entry of the last level if a pattern ends there, and plans to enter it if one leads
  /// on from there.
  void reach(const char* name, Directory::EntryKind kind, const Positions& positions) {
    const auto ends = std::count_if(positions.begin(), positions.end(), [this](std::size_t at) {
      return patterns_[at].kind == Component::Kind::end;
    });
    Level& level = levels_.back();
    if (ends > 0) {
      if (const auto time = level.directory.modificationTime(name)) found_(path_, name, *time);
    }
    const bool leadsOn = static_cast<std::size_t>(ends) < positions.size();
    const auto depth = static_cast<std::int64_t>(levels_.size() - 1);
    if (leadsOn && kind != Directory::EntryKind::other && depth < maxDepth_) {
      level.pending.push_back({name, positions});
    }
  }

  const PatternList& patterns_;
  const std::int64_t maxDepth_;
  const Found& found_;
  std::vector<Level> levels_;
  std::string path_;  ///< of the last level's directory
  Positions advanced_;
};

}  // namespace

FileActivityProbe::FileActivityProbe(std::filesystem::path home, std::int64_t maxDepth)
    : home_(std::move(home)), maxDepth_(maxDepth) {}

std::optional<Timestamp> FileActivityProbe::newestModification(
    const std::vector<std::string>& patterns) const {
  std::optional<Timestamp> newest;
  const Walk::Found found = [&newest](std::string_view, std::string_view, Timestamp time) {
    if (!newest || time > *newest) newest = time;
  };
  const PatternList list(patterns);
  Walk(list, maxDepth_, found).run(home_.string());
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
  const Walk::Found found = [&matches](std::string_view directory, std::string_view name,
                                       Timestamp time) {
    std::string path;
    path.reserve(directory.size() + 1 + name.size());
    path = directory;
    appendComponent(path, name);
    matches.emplace_back(std::move(path), time);
  };
  const PatternList list(patterns);
  Walk(list, maxDepth_, found).run(home_.string());
  // Built at once: a table that grows would be scattered over memory again and again.
  return ModificationsByPath(std::make_move_iterator(matches.begin()),
                             std::make_move_iterator(matches.end()), matches.size());
}

}  // namespace wakelatch
