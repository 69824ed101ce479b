#include "Host/WatchText.h"

#include <cstdio>

#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

/// What is there, whether or not it is wanted.
std::string inEffect(const Held& held) {
  const std::string tool =
      held.isToolRunning() ? "the keep-awake tool runs" : "the keep-awake tool does not run";
  return tool + (held.isLidClosedEngaged ? ", the lid-closed setting is engaged" : "");
}

std::optional<WatchFault> heldFault(const Held& held) {
  if (held.isRestoreOpen) {
    return WatchFault{
        "not to be kept awake, but the lid-closed setting is engaged: its restore was refused",
        "allow the prompt when it comes again, or stop the watch and run: wakelatch restore"};
  }
  if (held.isToolWanted && !held.isToolRunning()) {
    if (held.toolProblem) {
      return WatchFault{"cannot be kept awake: " + *held.toolProblem,
                        "see to what it names; it is tried again every tick"};
    }
    return WatchFault{"to be kept awake, but " + inEffect(held), "see the log for the reason"};
  }
  return std::nullopt;
}

}  // namespace

std::string describe(const Held& held) {
  if (const auto fault = heldFault(held)) return fault->finding;
  if (!held.isToolWanted) {
    return held.isHeld() ? "not to be kept awake, but still " + inEffect(held) : "sleep allowed";
  }
  std::string text =
      *held.letDisplaySleep ? "kept awake, display may sleep" : "kept awake, display too";
  if (!held.isToolProven) text = "the keep-awake tool is being tried";
  if (held.toolProblem) text += ", but " + *held.toolProblem;
  return text + (held.isLidClosedEngaged ? ", lid-closed setting engaged" : "");
}

std::optional<WatchFault> watchFault(const WatchState& watch, Timestamp now) {
  const Held& held = watch.held;
  const std::string pid = std::to_string(watch.pid);
  if (watch.isStopped) {
    return WatchFault{"stopped (Ctrl-Z), it decides nothing; " + inEffect(held),
                      "let it go on: fg in its terminal, or kill -CONT " + pid};
  }
  if (watch.isStuck(now)) {
    char interval[32];  // may be less than a second
    std::snprintf(interval, sizeof interval, "%.3g s", watch.intervalSeconds);
    return WatchFault{"stuck: last tick " + secondsText(secondsBetween(watch.at, now)) +
                          " ago, every " + interval + "; " + inEffect(held),
                      "if it stays so, end it: kill " + pid + ", or kill -9 " + pid +
                          "; then run: wakelatch restore"};
  }
  return heldFault(held);
}

std::string describe(const WatchState& watch, Timestamp now) {
  const auto fault = watchFault(watch, now);
  return (fault ? fault->finding : describe(watch.held)) +
         (watch.held.prompt ? "; administrator prompt open: " + *watch.held.prompt : "");
}

}  // namespace wakelatch::host
