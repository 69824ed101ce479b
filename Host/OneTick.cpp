#include "Host/OneTick.h"

#include <chrono>
#include <thread>
#include <utility>

#include "Host/AgentsFile.h"
#include "Host/SettingsFile.h"
#include "Host/SupportDirectory.h"
#include "Host/SystemTools.h"
#include "Platform/Clock.h"

namespace wakelatch::host {

OneTick decide(AgentStateMachine& machine, AppMode mode, const GuardSettings& settings,
               bool isPreventingSleep, Observation seen) {
  machine.forgetFuture(seen.at);
  OneTick tick;
  tick.settings = settings;
  tick.mode = mode;
  tick.isPreventingSleep = isPreventingSleep;
  tick.memory = machine.memory();
  tick.seen = std::move(seen);
  tick.decision =
      machine.evaluate(mode, settings, tick.seen.power, tick.seen.lidState, tick.seen.strongest,
                       isPreventingSleep, tick.seen.thermalState, tick.seen.at);
  tick.rule = machine.lastRule();
  return tick;
}

WatchState stateAfter(const OneTick& tick, const AgentStateMachine::Memory& memory,
                      const Held& held, std::int64_t pid, double intervalSeconds) {
  return {.pid = pid,
          .at = tick.seen.at,
          .intervalSeconds = intervalSeconds,
          .isStopped = false,
          .mode = tick.mode,
          .held = held,
          .lastActiveSignalAt = memory.lastActiveSignalAt,
          .hasSeenWork = memory.hasSeenWork,
          .completionSleepIssued = memory.completionSleepIssued};
}

OneTick tickOnce(std::optional<AppMode> mode, const std::string& agent, Tools& tools) {
  const AgentProfiles profiles = loadAgents(agentsFiles()).profiles;
  const GuardSettings settings = onlyAgent(loadSettings(settingsFile()), agent, profiles);
  const bool isWatchRunning = runningWatch().has_value();
  const auto watch = runningWatchState();
  const MachineSources machine(tools.runner());
  Observer observer(machine.sources(), profiles);
  Observation seen = observer.look(settings, platform::now());
  if (!seen.evidence.process.empty() && loadSampleSeconds() > 0) {
    std::this_thread::sleep_for(std::chrono::duration<double>(loadSampleSeconds()));
    seen = observer.look(settings, platform::now());
  }
  AgentStateMachine stateMachine(watch ? watch->memory() : AgentStateMachine::Memory());
  OneTick tick = decide(stateMachine, mode.value_or(watch ? watch->mode : AppMode::watchAgentUI),
                        settings, watch && watch->held.isHeld(), std::move(seen));
  tick.isWatchRunning = isWatchRunning;
  tick.watch = watch;
  return tick;
}

}  // namespace wakelatch::host
