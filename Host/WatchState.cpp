#include "Host/WatchState.h"

#include <algorithm>
#include <system_error>

#include "Host/InstanceLock.h"
#include "Host/SupportDirectory.h"
#include "Platform/Files.h"

namespace wakelatch::host {

bool WatchState::isStuck(Timestamp now) const {
  // Starting the tools of a tick may take a second, however short the interval is.
  return secondsBetween(at, now) > 3 * std::max(intervalSeconds, 1.0);
}

std::optional<std::int64_t> runningWatch() {
  return InstanceLock::currentHolder(lockFile());
}

std::optional<WatchState> runningWatchState() {
  const auto holder = runningWatch();
  if (!holder) return std::nullopt;
  try {
    auto state = decode<WatchState>(platform::readFile(watchStateFile()));
    if (state.pid == holder) return state;  // else it was left by an earlier one
  } catch (const std::system_error&) {
  } catch (const DecodingError&) {
  }
  return std::nullopt;  // it has not finished its first tick
}

void writeWatchState(const WatchState& state) {
  platform::writeAtomically(watchStateFile(), encode(state));
}

}  // namespace wakelatch::host
