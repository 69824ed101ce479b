#include "Host/OneTick.h"

#include "Host/Folder.h"
#include "Host/SettingsFile.h"
#include "Platform/Clock.h"

namespace wakelatch::host {

OneTick tickOnce(std::optional<AppMode> mode, Tools& tools) {
  OneTick tick{};
  tick.settings = loadSettings(settingsFile());
  tick.isWatchRunning = runningWatch().has_value();
  tick.watch = runningWatchState();
  tick.mode = mode.value_or(tick.watch ? tick.watch->mode : AppMode::watchAgentUI);
  tick.isPreventingSleep = tick.watch && tick.watch->held.isHeld();

  tick.seen = Observer(tools.runner()).look(tick.settings, platform::now());
  AgentStateMachine machine(tick.watch ? tick.watch->memory() : AgentStateMachine::Memory());
  machine.forgetFuture(tick.seen.at);
  tick.memory = machine.memory();
  tick.decision = machine.evaluate(tick.mode, tick.settings, tick.seen.power, tick.seen.lidState,
                                   tick.seen.strongest, tick.isPreventingSleep,
                                   tick.seen.thermalState, tick.seen.at);
  tick.rule = machine.lastRule();
  return tick;
}

}  // namespace wakelatch::host
