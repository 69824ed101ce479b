// Listing a directory and measuring its entries. May block on the file system; callable from any
// thread. Nothing is thrown but for want of memory, and nothing logged: what cannot be read is not
// there.
#pragma once

#include <fcntl.h>

#include <functional>
#include <optional>
#include <string>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// What an entry itself is; a link is a link wherever it leads. A listing tells it of each entry,
/// and of an entry that was not listed it is unknown.
enum class EntryKind { unlisted, directory, link, other };

/// An entry of a directory. Owns nothing: one from a listing is valid during the visit.
struct DirectoryEntry {
  /// The bytes that the file system knows it by: from a listing its name, else any path.
  const char* path;
  EntryKind kind = EntryKind::unlisted;
  int directory = AT_FDCWD;  ///< the descriptor of the directory that `path` starts from

  /// When its content last changed, with the fraction of the second; for a link its own. Nothing
  /// when there is no such entry.
  std::optional<Timestamp> modificationTime() const;
};

/// Calls `visit` for each entry of the directory at `path` but "." and "..", hidden ones included,
/// in the file system's order.
void forEachEntry(const std::string& path,
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
