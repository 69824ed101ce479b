// When the files that match path patterns were last changed, looked up only where something
// changed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/FileActivityProbe.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Answers what a FileActivityProbe would answer at that moment, but walks only once for each list
/// of patterns: from then on the system tells which directories have changed. What it does not tell
/// of is walked in each call: directories that may not be read or that lie on a network, all of
/// them when the system has no room for more watches, and matches that are directories or have
/// several names are asked for their times. What somebody changes through a memory map, or by
/// another name of the file that is made later, goes unnoticed until verify() comes to it.
///
/// Callable from any thread; calls wait for one another. Remembers each file that matched, and each
/// directory on the way, for every list of patterns that it was ever asked about: some 150 bytes a
/// file. Holds two file descriptors, and on Linux one of the user's inotify watches a directory.
class WatchingFileProbe : public FileActivityProbing {
 public:
  /// Whether the system tells of changes. Where it does not, as on macOS, each call walks, and a
  /// FileActivityProbe does that at less cost.
  static bool isSupported();

  /// How often verify() begins anew, in seconds.
  static constexpr double verifyInterval = 300;

  /// @param home, maxDepth  as for FileActivityProbe
  /// @param verifyEvery     in place of `verifyInterval`, for tests
  WatchingFileProbe(std::filesystem::path home, std::int64_t maxDepth,
                    double verifyEvery = verifyInterval);
  ~WatchingFileProbe() override;
  WatchingFileProbe(const WatchingFileProbe&) = delete;
  WatchingFileProbe& operator=(const WatchingFileProbe&) = delete;

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override;
  std::vector<Timestamp> modificationDates(const std::vector<std::string>& patterns) const override;
  ModificationsByPath sessionModifications(const std::vector<std::string>& patterns) const override;
  ModificationsByPath recentModifications(const std::vector<std::string>& patterns,
                                          Timestamp since) const override;

  /// Insurance: compares what is remembered with the disk, mends it, and returns how many entries
  /// were wrong without a word from the system. Goes on where the last call stopped, for some
  /// `seconds`, and does nothing until `verifyInterval` has passed since it last began with the
  /// first directory. To be called now and then when time does not press.
  std::size_t verify(double seconds);

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
