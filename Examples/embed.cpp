// The smallest host: one tick, from start-up to restoring normal sleep. A real host repeats the
// tick about every two seconds, and stores settings and statistics in files of its own.
#include <stdlib.h>

#include <iostream>
#include <utility>

#include "Platform/Clock.h"
#include "WakelatchCore/WakelatchCore.h"

int main(int argc, char** argv) {
  using namespace wakelatch;
  ::setenv("LC_ALL", "en_US.UTF-8", 1);  // `ps` must not print decimal commas
  const char* home = ::getenv("HOME");
  const char* keepAwakeTool = argc > 1 ? argv[1] : "/usr/bin/caffeinate";

  // What the host owns for its whole life. The second runner has a longer time-out, because a
  // prompt waits for somebody to type a password.
  ProcessCommandRunner runner(ProcessDetector::busyMacTimeout);
  ProcessCommandRunner adminRunner(/*timeoutSeconds=*/120);
  PowerMonitor powerMonitor(runner);
  LidStateDetector lidDetector(runner);
  ProcessDetector processes(runner);
  AccessibilityDetector accessibility;
  FileActivityProbe files(home != nullptr ? home : "/", /*maxDepth=*/12);
  SessionActivityDetector sessions(files);
  ActivityDetector activity(processes, accessibility, sessions);
  AgentStateMachine machine;
  SleepController controller(runner, adminRunner, FileLogger::shared(), keepAwakeTool);

  // Start-up: undo what a crash may have left, before the first enabling call.
  controller.reconcileOrphanedCaffeinate();
  controller.reconcileStuckDisableSleep();

  // One tick: look, decide, act, count.
  const GuardSettings settings;
  const AppMode mode = AppMode::watchAgentUI;
  const Timestamp now = platform::now();
  UsageMetrics usage(now);
  const PowerSnapshot power = powerMonitor.snapshot();
  const LidState lid = lidDetector.lidState();
  const ActivitySignal signal = activity.detect(settings, power, now);
  machine.forgetFuture(now);  // for later ticks, when the clock may have been set back
  const GuardDecision decision =
      machine.evaluate(mode, settings, power, lid, signal, controller.isSleepPreventionEnabled(),
                       ThermalState::nominal, now);
  // A host that uses lid-closed mode delays the release by SleepReleasePolicy::planRelease().
  controller.setSleepPrevention(decision.shouldPreventSleep, settings.keepAwakeWithLidClosed,
                                settings.letDisplaySleep);
  if (decision.shouldSleepNow) controller.sleepNow();
  const KeepAwakeTrigger trigger = decision.status == GuardStatus::keepingAwake
                                       ? KeepAwakeTrigger::activeSignal
                                       : KeepAwakeTrigger::none;
  usage = UsageMetrics::recording(
      std::move(usage), controller.isSleepPreventionEnabled(), trigger, signal.strength, lid,
      signal.appName, settings.profile(power).idleGracePeriodSeconds, signal.processPresent, now);

  std::cout << displayName(decision.status) << ": " << decision.reason << '\n';

  // On leaving; false if the lid-closed setting may still be on.
  return controller.restoreNormalSleep() ? 0 : 1;
}
