// What the last look at the session files found, for telling how old they are.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Mutex.h"
#include "WakelatchCore/FileActivityProbe.h"

namespace wakelatch::host {

/// Passes every question on and keeps the answers about the newest files: walking them again would
/// cost as much as the look did, and might tell another age than the one that was judged.
class RememberedFiles : public FileActivityProbing {
 public:
  /// @param probe  owned by the caller
  explicit RememberedFiles(const FileActivityProbing& probe) : probe_(probe) {}

  std::optional<Timestamp> newestModification(
      const std::vector<std::string>& patterns) const override {
    const std::optional<Timestamp> newest = probe_.newestModification(patterns);
    const platform::MutexLock lock(mutex_);
    newest_[patterns] = newest;
    return newest;
  }
  std::vector<Timestamp> modificationDates(
      const std::vector<std::string>& patterns) const override {
    return probe_.modificationDates(patterns);
  }
  ModificationsByPath sessionModifications(
      const std::vector<std::string>& patterns) const override {
    return probe_.sessionModifications(patterns);
  }

  /// The last answer of newestModification(); nothing before the first. Asks nobody.
  std::optional<Timestamp> lastNewest(const std::vector<std::string>& patterns) const {
    const platform::MutexLock lock(mutex_);
    const auto found = newest_.find(patterns);
    return found == newest_.end() ? std::nullopt : found->second;
  }

 private:
  const FileActivityProbing& probe_;
  mutable platform::Mutex mutex_;
  // Only grows: an entry per agent.
  mutable std::map<std::vector<std::string>, std::optional<Timestamp>> newest_
      WAKELATCH_GUARDED_BY(mutex_);
};

}  // namespace wakelatch::host
