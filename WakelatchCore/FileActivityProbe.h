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

/// Modification times by path; a path is the bytes the file system knows the entry by.
using ModificationsByPath = std::unordered_map<std::string, Timestamp>;

/// Answers when the files behind path patterns were last changed. Implementations must allow calls
/// from several threads at once, never throw, and may block on the file system.
class FileActivityProbing {
 public:
  virtual ~FileActivityProbing() = default;

  /// The latest time of anything that one of the patterns matches; nothing when none does.
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

  /// Of sessionModifications() those that were not before `since`. A probe that knows where
  /// something changed need not look at all the others.
  virtual ModificationsByPath recentModifications(const std::vector<std::string>& patterns,
                                                  Timestamp since) const;
};

/// Looks below one directory, anew in each call.
///
/// Patterns are relative to that directory; a leading "~/" or "/" and empty components are dropped.
/// A component "**" stands for any number of directory levels, links to directories not among them.
/// A component that holds another "*" is matched against the names of entries by the shell's rules,
/// hidden ones included. Any other component is a name, even with "?" or "[" in it, and links on
/// the way are followed. Directories match as files do, and a link is matched itself, not what it
/// leads to. What cannot be read is not there.
///
/// A call lists each directory once at most, however many patterns lead there. It holds one file
/// descriptor at a time; entries whose paths are longer than the system takes are not there.
class FileActivityProbe : public FileActivityProbing {
 public:
  /// @param home      the directory that patterns start from
  /// @param maxDepth  how many levels below `home` are looked at; 0: `home` alone, negative:
  /// nothing
  FileActivityProbe(std::filesystem::path home, std::int64_t maxDepth);

  ///@{
  /// What the constructor was given.
  const std::filesystem::path& home() const { return home_; }
  std::int64_t maxDepth() const { return maxDepth_; }
  ///@}

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override;
  std::vector<Timestamp> modificationDates(const std::vector<std::string>& patterns) const override;
  /// Paths begin with `home` as it was given, less slashes at its end.
  ModificationsByPath sessionModifications(const std::vector<std::string>& patterns) const override;

 private:
  std::filesystem::path home_;
  std::int64_t maxDepth_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
