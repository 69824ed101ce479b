// Path patterns, and the walk through the directories that they lead to. For the file probes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Directory.h"

namespace wakelatch {

/// Indices of components in a PatternList, ascending: what several patterns look for next.
using Positions = std::vector<std::size_t>;

/// Several patterns, one after another, each closed by an `end`.
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

  /// From the positions of a directory those of an entry in it. Only its name leads to an entry
  /// that was not listed.
  Positions advanced(const Positions& positions, const char* name, platform::EntryKind kind) const;

  /// Whether some pattern can end at a file of a directory with these positions.
  bool mayEndBelow(const Positions& positions) const;

 private:
  std::size_t parse(std::string_view pattern);
  void add(Positions& positions, std::size_t position) const;

  std::vector<Component> components_;
  Positions starts_;
};

/// The path of an entry. A directory's path is empty above the root of a walk.
std::string joined(const std::string& directory, const char* name);

/// One pass over the entries that any of the patterns can reach. All patterns go together: each
/// entry carries the positions that they reach it with, so no directory is listed twice. Holds one
/// file descriptor at a time, and recurses into nothing.
class PatternWalk {
 public:
  /// A directory to be looked into.
  struct Place {
    std::string path;
    std::int64_t depth;        ///< levels below home, which is at 0
    Positions positions;       ///< where the patterns stand whose ways have led there
    bool isUnwatched = false;  ///< nobody tells of changes in it; all below takes this over
  };

  /// @param patterns  owned by the caller
  PatternWalk(const PatternList& patterns, std::int64_t maxDepth)
      : patterns_(patterns), maxDepth_(maxDepth) {}
  PatternWalk(const PatternWalk&) = delete;
  PatternWalk& operator=(const PatternWalk&) = delete;
  virtual ~PatternWalk() = default;

  /// Reaches `home`, and enters all that is reached.
  void run(std::string home);

 protected:
  /// A match, told once: the directory where it is, its name, what it is.
  virtual void found(const Place& directory, const char* name,
                     const platform::EntryStatus& status) = 0;
  /// Before a directory is looked into; false to leave it out. It need not exist, nor be one.
  virtual bool enters(Place& /*directory*/) { return true; }
  /// After that. What is below is entered later.
  /// @param isRead  see look()
  virtual void left(const Place& /*directory*/, bool /*isRead*/) {}

  /// Tells of an entry of `directory` if a pattern ends there, and plans to enter it if one leads
  /// on.
  void reach(const Place& directory, const char* name, const platform::DirectoryEntry& entry,
             const Positions& positions);
  /// Lists a directory if a pattern asks for that, and reaches what the patterns lead to there.
  /// False when the listing is not complete.
  bool look(const Place& directory);
  /// Enters what is planned, and what is reached there.
  void enterPlanned();

  std::vector<Place> planned_;

 private:
  const PatternList& patterns_;
  const std::int64_t maxDepth_;
};

}  // namespace wakelatch
