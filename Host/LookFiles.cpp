#include "Host/LookFiles.h"

#include <algorithm>

namespace wakelatch::host {

void LookFiles::beginLook() {
  const platform::MutexLock lock(mutex_);
  newest_.clear();
  sessions_.clear();
}

std::optional<Timestamp> LookFiles::newestModification(
    const std::vector<std::string>& patterns) const {
  const platform::MutexLock lock(mutex_);
  const auto known = newest_.find(patterns);
  if (known != newest_.end()) return known->second;
  std::optional<Timestamp> newest;
  if (listed_.contains(patterns)) {
    for (const auto& [path, time] : list(patterns)) newest = std::max(newest.value_or(time), time);
  } else {
    newest = probe_.newestModification(patterns);
  }
  return newest_[patterns] = newest;
}

ModificationsByPath LookFiles::sessionModifications(
    const std::vector<std::string>& patterns) const {
  const platform::MutexLock lock(mutex_);
  listed_.insert(patterns);
  return list(patterns);
}

const ModificationsByPath& LookFiles::list(const Patterns& patterns) const {
  const auto [entry, isNew] = sessions_.try_emplace(patterns);
  if (isNew) entry->second = probe_.sessionModifications(patterns);
  return entry->second;
}

}  // namespace wakelatch::host
