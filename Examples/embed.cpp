// The smallest program that embeds the library: one tick, from observation to decision.
#include <iostream>

#include "Platform/Clock.h"
#include "Platform/Files.h"
#include "WakelatchCore/WakelatchCore.h"

int main() {
  using namespace wakelatch;

  // What the host owns for its whole life.
  ProcessCommandRunner runner(/*timeoutSeconds=*/5);
  PowerMonitor powerMonitor(runner);
  LidStateDetector lidDetector(runner);
  ProcessDetector processes(runner);
  AccessibilityDetector accessibility;
  FileActivityProbe files(platform::homeDirectory(), /*maxDepth=*/12);
  SessionActivityDetector sessions(files);
  ActivityDetector activity(processes, accessibility, sessions);
  AgentStateMachine machine;

  // One tick. A real host goes on: SleepController carries the decision out.
  const GuardSettings settings;
  const Timestamp now = platform::now();
  const PowerSnapshot power = powerMonitor.snapshot();
  const LidState lid = lidDetector.lidState();
  const ActivitySignal signal = activity.detect(settings, power, now);
  const GuardDecision decision =
      machine.evaluate(AppMode::watchAgentUI, settings, power, lid, signal,
                       /*isPreventingSleep=*/false, ThermalState::nominal, now);
  std::cout << displayName(decision.status) << ": " << decision.reason << "\n";
}
