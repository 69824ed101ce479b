#include "Host/WatchState.h"

#include <system_error>

#include "Host/Folder.h"
#include "Host/InstanceLock.h"
#include "Platform/Files.h"

namespace wakelatch::host {

std::optional<std::int64_t> runningWatch() {
  return InstanceLock::currentHolder(lockFile());
}

std::optional<WatchState> runningWatchState() {
  if (!runningWatch()) return std::nullopt;
  try {
    return decode<WatchState>(platform::readFile(watchStateFile()));
  } catch (const std::system_error&) {
  } catch (const DecodingError&) {
  }
  return std::nullopt;  // it has not finished its first tick
}

void writeWatchState(const WatchState& state) {
  platform::writeAtomically(watchStateFile(), encode(state));
}

}  // namespace wakelatch::host
