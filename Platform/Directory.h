// Listing a directory and measuring its entries. May block on the file system; callable from any
// thread. Throws only when memory runs out and logs nothing: what cannot be read counts as absent.
#pragma once

#include <fcntl.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// The type of an entry; a link counts as a link wherever it leads. Known only for entries that
/// come from a listing.
enum class EntryKind { unlisted, directory, link, other };

/// What the file system knows of an entry.
struct EntryStatus {
  EntryKind kind = EntryKind::other;
  Timestamp modifiedAt = {};   ///< when its content last changed, with the fraction of the second
  bool hasOtherNames = false;  ///< hard links, by which it may be changed too
  std::uint64_t device = 0;    ///< the file system that it is on
  std::uint64_t number = 0;    ///< tells it apart from the others there, as long as it exists

  /// Whether this is the same file or directory, whatever has become of it.
  bool isSame(const EntryStatus& other) const {
    return device == other.device && number == other.number && kind == other.kind;
  }
};

/// The status of what is at `path`; nothing when there is nothing, or nothing to be seen.
/// @param followsLink  a link stands for what it leads to
std::optional<EntryStatus> entryStatus(const std::string& path, bool followsLink);

/// An entry of a directory. Owns nothing: one from a listing is valid during the visit.
struct DirectoryEntry {
  /// The bytes that the file system knows it by: from a listing its name, else any path.
  const char* path;
  EntryKind kind = EntryKind::unlisted;
  int directory = AT_FDCWD;  ///< the descriptor of the directory that `path` starts from

  /// Of a link its own. Nothing when there is no such entry.
  std::optional<EntryStatus> status() const;
};

/// Calls `visit` for each entry of the directory at `path` but "." and "..", hidden ones included,
/// in the file system's order. False when it could not be read to its end.
bool forEachEntry(const std::string& path,
                  const std::function<void(const DirectoryEntry& entry)>& visit);

/// A shell pattern for one name: case counts, and "*" and "?" match a leading "." too.
class Wildcard {
 public:
  explicit Wildcard(std::string pattern);
  bool matches(const char* name) const;

 private:
  std::string pattern_;
  std::size_t onlyStar_;  ///< where the only special character is, a "*"; npos: there are others
};

}  // namespace wakelatch::platform
