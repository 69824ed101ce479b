// One tick without side effects, for the commands that only show.
#pragma once

#include <optional>

#include "Host/Observer.h"
#include "Host/Tools.h"
#include "Host/WatchState.h"
#include "WakelatchCore/AgentStateMachine.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

struct OneTick {
  GuardSettings settings;
  AppMode mode;
  bool isWatchRunning;
  std::optional<WatchState> watch;  ///< of a watch that runs, after its first tick
  bool isPreventingSleep;
  AgentStateMachine::Memory memory;  ///< before the decision
  Observation seen;
  GuardDecision decision;
  GuardRule rule;  ///< that gave it
};

/// Looks and decides as a running watch would, with what it remembers; without one, as a watch that
/// has just begun. Throws std::runtime_error when the settings cannot be read.
/// @param mode  absent: the running watch's, else watching agents
OneTick tickOnce(std::optional<AppMode> mode, Tools& tools);

}  // namespace wakelatch::host
