// When the files that match path patterns were last changed, looked up only where the system has
// reported a change.
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

/// Gives the answers of a FileActivityProbe, but walks the tree only once for each list of
/// patterns: from then on the system reports which directories have changed.
///
/// Each call still reads what the system does not report: directories that cannot be watched (they
/// may not be read, lie on a network, or the system has no room for more watches), and the times of
/// matches that are directories or have several hard links. Changes through a memory map, or
/// through a hard link that is made later, go unnoticed until verify() finds them.
///
/// Callable from any thread; calls wait for one another. Keeps each file that matched, and each
/// directory on the way, for every list of patterns that it was ever asked about: some 150 bytes
/// per file. Holds two file descriptors and, on Linux, one of the user's inotify watches per
/// directory.
class WatchingFileProbe : public FileActivityProbing {
 public:
  /// Whether the system reports changes. If not, as on macOS, each call walks, and a
  /// FileActivityProbe does that at less cost.
  static bool isSupported();

  /// The least time between two rounds of verify(), in seconds.
  static constexpr double verifyInterval = 300;

  /// @param home, maxDepth  as for FileActivityProbe
  /// @param verifyEvery     in place of `verifyInterval`, for tests
  WatchingFileProbe(const std::filesystem::path& home, std::int64_t maxDepth,
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

  /// Compares the stored state with the disk, corrects it, and returns how many entries were wrong
  /// although the system had reported no change. A call takes about `seconds`, and the next one
  /// continues where it stopped; a new round begins `verifyInterval` after the last one began. To
  /// be called from time to time when the host is not busy.
  std::size_t verify(double seconds);

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
