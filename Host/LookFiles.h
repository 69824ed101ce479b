// Session files as one look at the machine sees them.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Mutex.h"
#include "WakelatchCore/FileActivityProbe.h"

namespace wakelatch::host {

/// Asks a probe each question once a look: several detectors ask about the same files, and all of
/// them are to judge the same times. For any thread.
class LookFiles : public FileActivityProbing {
 public:
  /// @param probe  owned by the caller
  explicit LookFiles(const FileActivityProbing& probe) : probe_(probe) {}

  /// Forgets all answers; to be called when a look begins.
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
