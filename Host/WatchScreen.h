// What `watch` shows on a terminal, in place, for people who leave it open all day.
#pragma once

#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "Host/StatusReport.h"
#include "Host/Terminal.h"
#include "Platform/Clock.h"

namespace wakelatch::host {

/// A tick of a watch, as it is told.
struct WatchTick {
  Timestamp at;
  StatusReport report;                        ///< its `watch` tells what is held
  std::optional<Timestamp> graceEndsAt = {};  ///< while idle grace holds the machine awake
  double keptSecondsToday = 0;                ///< kept awake, of every kind
};

/// Lines without line breaks, at most `rows` - 1, each at most `columns` wide, for drawing(). Where
/// rows are few, evidence goes first, then notices, the oldest first; the state, what is held and
/// an open prompt stay, on one line if it must be. Pure but for the local time zone.
/// @param tick     the last one
/// @param notices  newest last, each begins with its local time
std::vector<std::string> watchScreen(const WatchTick& tick, Timestamp now,
                                     const std::deque<std::string>& notices,
                                     const TerminalStyle& style);

}  // namespace wakelatch::host
