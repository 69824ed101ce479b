#include "Host/LookFiles.h"

#include <limits>

namespace wakelatch::host {

void LookFiles::beginLook() {
  const platform::MutexLock lock(mutex_);
  newest_.clear();
  recent_.clear();
}

std::optional<Timestamp> LookFiles::newestModification(
    const std::vector<std::string>& patterns) const {
  const platform::MutexLock lock(mutex_);
  const auto [entry, isNew] = newest_.try_emplace(patterns);
  if (isNew) entry->second = probe_.newestModification(patterns);
  return entry->second;
}

ModificationsByPath LookFiles::sessionModifications(
    const std::vector<std::string>& patterns) const {
  constexpr double ever = std::numeric_limits<double>::infinity();
  return recentModifications(patterns, after(Timestamp(), -ever));
}

ModificationsByPath LookFiles::recentModifications(const std::vector<std::string>& patterns,
                                                   Timestamp since) const {
  const platform::MutexLock lock(mutex_);
  const auto [entry, isNew] = recent_.try_emplace({patterns, since});
  if (isNew) entry->second = probe_.recentModifications(patterns, since);
  return entry->second;
}

}  // namespace wakelatch::host
