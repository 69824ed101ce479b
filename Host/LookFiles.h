// Keeps the answers about session files for the length of one look at the machine.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Mutex.h"
#include "WakelatchCore/FileActivityProbe.h"

namespace wakelatch::host {

/// Passes each query to a probe only once per look: several detectors ask about the same files, and
/// all of them should judge the same times. Callable from any thread; calls wait for one another.
class LookFiles : public FileActivityProbing {
 public:
  /// @param probe  used, not owned
  explicit LookFiles(const FileActivityProbing& probe) : probe_(probe) {}

  /// Drops all kept answers; to be called when a look begins.
  void beginLook();

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override;
  ModificationsByPath sessionModifications(const std::vector<std::string>& patterns) const override;
  ModificationsByPath recentModifications(const std::vector<std::string>& patterns,
                                          Timestamp since) const override;

 private:
  using Patterns = std::vector<std::string>;

  const FileActivityProbing& probe_;
  mutable platform::Mutex mutex_;
  mutable std::map<Patterns, std::optional<Timestamp>> newest_ WAKELATCH_GUARDED_BY(mutex_);
  mutable std::map<std::pair<Patterns, Timestamp>, ModificationsByPath> recent_
      WAKELATCH_GUARDED_BY(mutex_);
};

}  // namespace wakelatch::host
