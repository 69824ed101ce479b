// Changes in directories, told by the system.
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

/// Remembers what changed in the directories that it watches until it is asked. A change is told
/// once it has happened: who asks after it hears of it, and whatever they then see there is at
/// least as new. Nothing is thrown but for want of memory, and nothing logged. Not for use by
/// several threads at once.
class DirectoryWatch {
 public:
  /// A watched directory, by whatever path; no number is used twice.
  using Number = std::int32_t;

  struct Changes {
    /// Something was lost, or file systems were mounted or unmounted: anything may have changed.
    bool mayBeAnything = false;
    /// The directories and the names of the entries in them that came, went or changed. No name:
    /// the directory itself, in what may be done with it, or it is no longer watched.
    std::set<std::pair<Number, std::string>> entries;
  };

  /// Whether this system tells what is needed at all.
  static bool isSupported();

  DirectoryWatch();

  /// From here on tells of the entries of the directory at `path`, links followed, but not of what
  /// is below them. Nothing where that is not possible: the directory may not be read, its file
  /// system is not known to tell of every change, or the system has no room for more. What a file's
  /// other names or memory maps of it change is not told.
  /// @param device  EntryStatus::device of the directory
  /// @param tellsWrites  tells when a file's content changes too; once asked for it stays
  std::optional<Number> add(const std::string& path, std::uint64_t device, bool tellsWrites);
  void remove(Number number);

  /// What has changed since the last call. Does not wait.
  Changes read();

 private:
  bool isTold(const std::string& path, std::uint64_t device);

  Descriptor events_, mounts_;
  std::map<std::uint64_t, bool> isDeviceTold_;
};

}  // namespace wakelatch::platform
