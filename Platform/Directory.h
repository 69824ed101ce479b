// Listing a directory and measuring its entries. May block on the file system; callable from any
// thread. Throws only when memory runs out and logs nothing: what cannot be read counts as absent.
#pragma once

#include <fcntl.h>

#include <functional>
#include <optional>
#include <string>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// The type of an entry; a link counts as a link wherever it leads. Known only for entries that
/// come from a listing.
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
