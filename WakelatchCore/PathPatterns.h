// Path patterns, and the walk through the directories where they may match. Used by the file
// probes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Directory.h"

namespace wakelatch {

/// The state of several patterns at one entry: the indices, ascending, of the components in a
/// PatternList that have to match next.
using Positions = std::vector<std::size_t>;

/// The components of several patterns, one pattern after another, each terminated by an `end`.
class PatternList {
 public:
  struct Component {
    enum class Kind { name, wildcard, anyLevels, end };
    Kind kind;
    std::string text = {};
    platform::Wildcard wildcard{text};
  };

  explicit PatternList(const std::vector<std::string>& patterns);

  const Positions& starts() const { return starts_; }
  const Component& operator[](std::size_t position) const { return components_[position]; }

  /// The positions of an entry, from those of its directory. An entry that was not listed (kind
  /// `unlisted`) is reached only by a component that is its name.
  Positions advanced(const Positions& positions, const char* name, platform::EntryKind kind) const;

  /// Whether a pattern may match an entry of a directory with these positions.
  bool mayEndBelow(const Positions& positions) const;

 private:
  std::size_t parse(std::string_view pattern);
  void add(Positions& positions, std::size_t position) const;

  std::vector<Component> components_;
  Positions starts_;
};

/// The path of an entry of `directory`; the name alone if that is empty, as for the root of a walk.
std::string joined(const std::string& directory, const char* name);

/// One pass over the entries that any of the patterns can reach. All patterns are followed at once,
/// with their positions kept for each entry, so no directory is listed twice. Holds one file
/// descriptor at a time; does not recurse, so depth costs no stack.
class PatternWalk {
 public:
  /// A directory to be entered.
  struct Place {
    std::string path;
    std::int64_t depth;        ///< levels below home, which is at 0
    Positions positions;       ///< those of the patterns that lead there
    bool isUnwatched = false;  ///< the system reports no changes in it; inherited by all below
  };

  /// @param patterns  owned by the caller
  PatternWalk(const PatternList& patterns, std::int64_t maxDepth)
      : patterns_(patterns), maxDepth_(maxDepth) {}
  PatternWalk(const PatternWalk&) = delete;
  PatternWalk& operator=(const PatternWalk&) = delete;
  virtual ~PatternWalk() = default;

  /// Walks from `home`.
  void run(std::string home);

 protected:
  /// Called once for each match, with its directory, its name and its status.
  virtual void found(const Place& directory, const char* name,
                     const platform::EntryStatus& status) = 0;
  /// Called before look() at a directory; return false to skip it. The path may not exist, or not
  /// be a directory.
  virtual bool enters(Place& /*directory*/) { return true; }
  /// Called after look() at a directory, before the directories below it are entered.
  /// @param isRead  result of look()
  virtual void left(const Place& /*directory*/, bool /*isRead*/) {}

  /// Calls found() for an entry if a pattern ends there, and adds it to `planned_` if a pattern
  /// continues below it.
  void reach(const Place& directory, const char* name, const platform::DirectoryEntry& entry,
             const Positions& positions);
  /// Calls reach() for the entries of a directory that patterns lead to. Lists the directory only
  /// if names do not suffice. Returns false if the listing is incomplete.
  bool look(const Place& directory);
  /// Enters the directories in `planned_` and those that are found there.
  void enterPlanned();

  std::vector<Place> planned_;

 private:
  const PatternList& patterns_;
  const std::int64_t maxDepth_;
};

}  // namespace wakelatch
