// A directory held open, through which its entries are listed, measured and opened: no path is ever
// resolved from the top again, so a tree may be deeper than any path can be long. May block on the
// file system; callable from any thread. Nothing is thrown or logged: what cannot be read is not
// there.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Platform/Clock.h"

namespace wakelatch::platform {

/// Movable only. Needs the right to search the directory; only listing needs the right to read it.
class Directory {
 public:
  /// What an entry itself is; a link is a link wherever it leads. A listing tells it of each entry.
  enum class EntryKind { unlisted, directory, link, other };
  using Visit = std::function<void(const char* name, EntryKind kind)>;

  /// A closed one: has no entries.
  Directory();
  /// The process's working directory, through which paths of all kinds can be opened.
  static Directory working();
  Directory(Directory&&) noexcept;
  Directory& operator=(Directory&&) noexcept;
  ~Directory();

  bool isOpen() const { return handle_ != nullptr; }
  void close();

  /// The directory at `path`, which is relative to this one or absolute; links are followed. Closed
  /// when there is none or it may not be searched.
  Directory open(const char* path) const;

  /// When the content of the entry at `path` last changed, with the fraction of the second; a link
  /// at its end is not followed. Nothing when there is no such entry.
  std::optional<Timestamp> modificationTime(const char* path) const;

  /// Calls `visit` for each entry but "." and "..", hidden ones included, in the file system's
  /// order. Names are bytes as stored, valid during the call. Once in the life of a directory.
  void forEachEntry(const Visit& visit);

 private:
  struct Handle;
  explicit Directory(int fd);
  int fd() const;

  std::unique_ptr<Handle> handle_;
};

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
