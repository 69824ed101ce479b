// Session files as one look at the machine sees them.
#pragma once

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Platform/Mutex.h"
#include "WakelatchCore/FileActivityProbe.h"

namespace wakelatch::host {

/// Asks a probe each question once a look: several detectors ask about the same files, walking them
/// costs most of a tick, and all of them are to judge the same times. For any thread.
class LookFiles : public FileActivityProbing {
 public:
  /// @param probe  owned by the caller
  explicit LookFiles(const FileActivityProbing& probe) : probe_(probe) {}

  /// From here on the answers are new ones.
  void beginLook();

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override;
  ModificationsByPath sessionModifications(const std::vector<std::string>& patterns) const override;

 private:
  using Patterns = std::vector<std::string>;
  const ModificationsByPath& list(const Patterns& patterns) const WAKELATCH_REQUIRES(mutex_);

  const FileActivityProbing& probe_;
  mutable platform::Mutex mutex_;
  mutable std::map<Patterns, std::optional<Timestamp>> newest_ WAKELATCH_GUARDED_BY(mutex_);
  mutable std::map<Patterns, ModificationsByPath> sessions_ WAKELATCH_GUARDED_BY(mutex_);
  /// Patterns whose session files were asked for in some look. Their newest file is found in that
  /// list, so that the directories are walked once for both questions.
  mutable std::set<Patterns> listed_ WAKELATCH_GUARDED_BY(mutex_);
};

}  // namespace wakelatch::host
