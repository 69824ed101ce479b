// When the files that match path patterns were last changed, read from the file system.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Platform/Clock.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Modification times by path, as the bytes that the file system uses.
using ModificationsByPath = std::unordered_map<std::string, Timestamp>;

/// Answers when the entries that match path patterns were last changed. Implementations must allow
/// calls from several threads at once, must not throw, log nothing and may block on the file
/// system.
class FileActivityProbing {
 public:
  virtual ~FileActivityProbing() = default;

  /// The latest time of all entries that one of the patterns matches; absent if there are none.
  virtual std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const = 0;

  /// The time of each entry that one of the patterns matches, in no particular order.
  virtual std::vector<Timestamp> modificationDates(
      const std::vector<std::string>& /*patterns*/) const {
    return {};
  }

  /// The time of each entry that one of the patterns matches, by the entry's path.
  virtual ModificationsByPath sessionModifications(
      const std::vector<std::string>& /*patterns*/) const {
    return {};
  }

  /// The entries of sessionModifications() whose time is not before `since`. A probe that is
  /// notified of changes can answer this without a walk.
  virtual ModificationsByPath recentModifications(const std::vector<std::string>& patterns,
                                                  Timestamp since) const;
};

/// Searches one directory tree; each call reads it anew.
///
/// Patterns are relative to the tree's root; a leading "~/" or "/" and empty components are
/// dropped. A component "**" stands for any number of directory levels, but does not follow
/// symbolic links. Any other component with "*" is matched against the names of entries by the
/// shell's rules, hidden entries included. A component without "*" is a plain name, even with "?"
/// or "["; on the way, symbolic links are followed. Directories match as files do. If a symbolic
/// link matches, its own time counts, not its target's. What cannot be read does not match, nor do
/// entries whose paths are longer than the system takes.
///
/// A call lists each directory at most once, however many patterns lead there, and holds one file
/// descriptor at a time.
class FileActivityProbe : public FileActivityProbing {
 public:
  /// @param home      root of the tree
  /// @param maxDepth  levels below `home` to be searched; 0: `home` alone, negative: nothing
  FileActivityProbe(std::filesystem::path home, std::int64_t maxDepth);

  ///@{
  /// The constructor's arguments.
  const std::filesystem::path& home() const { return home_; }
  std::int64_t maxDepth() const { return maxDepth_; }
  ///@}

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override;
  std::vector<Timestamp> modificationDates(const std::vector<std::string>& patterns) const override;
  /// Paths begin with `home` as it was given, without slashes at its end.
  ModificationsByPath sessionModifications(const std::vector<std::string>& patterns) const override;

 private:
  std::filesystem::path home_;
  std::int64_t maxDepth_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
