// Changes in directories, as the system reports them.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

#include "Platform/Descriptor.h"
#include "Platform/Directory.h"

namespace wakelatch::platform {

/// Collects changes in watched directories until read(). A read() after a change always returns
/// that change, so state read from the directory afterwards is at least as new. Throws only when
/// memory is short; logs nothing. Not for use by several threads at once.
class DirectoryWatch {
 public:
  /// Identifies a watched directory, by whatever path it was added. Numbers are never reused.
  using Number = std::int32_t;

  struct Changes {
    /// Reports were lost, or file systems were mounted or unmounted: anything may have changed.
    bool mayBeAnything = false;
    /// Directories with the names of entries that were created, removed or changed. An empty name
    /// means that the directory's own attributes changed, or that it is no longer watched.
    std::set<std::pair<Number, std::string>> entries;
  };

  /// Whether this system reports changes well enough to be used.
  static bool isSupported();

  DirectoryWatch();

  /// Watches the entries of the directory at `path`, following symbolic links, but not what is
  /// below the entries. Returns nothing if that is not possible: the directory may not be read, its
  /// file system is not known to report every change, or the system has no room for more watches.
  /// Changes through hard links elsewhere or through memory maps are not reported.
  /// @param device       EntryStatus::device of the directory
  /// @param tellsWrites  whether to report changes of files' contents too; cannot be taken back
  std::optional<Number> add(const std::string& path, std::uint64_t device, bool tellsWrites);
  void remove(Number number);

  /// The changes since the last call, up to this one. Does not block, however fast more are made.
  Changes read();

 private:
  bool isTold(const std::string& path, std::uint64_t device);

  Descriptor events_, mounts_;
  std::map<std::uint64_t, bool> isDeviceTold_;
};

}  // namespace wakelatch::platform
