// What a running watch is doing, and what is wrong with it, in words for `status` and `doctor`.
#pragma once

#include <optional>
#include <string>

#include "Host/WatchState.h"

namespace wakelatch::host {

/// What keeps a watch from doing its work.
struct WatchFault {
  std::string finding;
  std::string remedy;  ///< what to do
};

/// Nothing when all is well, or will be with the next ticks.
std::optional<WatchFault> watchFault(const WatchState& watch, Timestamp now);

/// What is in effect, or stands in its way: "kept awake, display may sleep, lid-closed setting
/// engaged".
std::string describe(const Held& held);

/// What it has in effect, or its fault's finding, with the open prompt: "kept awake, display too;
/// administrator prompt open: ...".
std::string describe(const WatchState& watch, Timestamp now);

}  // namespace wakelatch::host
