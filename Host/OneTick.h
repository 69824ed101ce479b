// One tick without side effects: a look and the decision on it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Host/Observer.h"
#include "Host/Tools.h"
#include "Host/WatchState.h"
#include "WakelatchCore/AgentStateMachine.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

struct OneTick {
  GuardSettings settings;
  AppMode mode = AppMode::watchAgentUI;
  bool isWatchRunning = false;
  std::optional<WatchState> watch;  ///< of a watch that runs, after its first tick
  bool isPreventingSleep = false;
  AgentStateMachine::Memory memory;  ///< before the decision
  Observation seen;
  GuardDecision decision;
  GuardRule rule = GuardRule::off;  ///< that gave the decision
};

/// Decides on what was seen. `machine` first forgets what lies in the future, since the clock may
/// have been set back.
OneTick decide(AgentStateMachine& machine, AppMode mode, const GuardSettings& settings,
               bool isPreventingSleep, Observation seen);

/// What a watch tells others about itself after such a tick.
/// @param memory  of the state machine, after the decision
WatchState stateAfter(const OneTick& tick, const AgentStateMachine::Memory& memory,
                      const Held& held, std::int64_t pid, double intervalSeconds);

/// Looks and decides as a running watch would, with what it remembers; without one, as a watch that
/// has just begun. Where agents run it looks twice, to measure their load for as long as a watch
/// does. Throws std::runtime_error when the settings cannot be read.
/// @param mode   absent: the running watch's, else watching agents
/// @param agent  the id of the only one that is looked for; empty: all
OneTick tickOnce(std::optional<AppMode> mode, const std::string& agent, Tools& tools);

}  // namespace wakelatch::host
