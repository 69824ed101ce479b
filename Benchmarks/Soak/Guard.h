// The objects of a watching host, driven one tick at a time. A restart makes a new Guard.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "Benchmarks/Soak/ScriptedTools.h"
#include "Benchmarks/Soak/World.h"
#include "Host/KeepAwake.h"
#include "Host/LookFiles.h"
#include "Host/Notices.h"
#include "Host/Pace.h"
#include "Host/Saver.h"
#include "Host/SupportDirectory.h"
#include "Host/UsageRecorder.h"
#include "Host/UsageStore.h"
#include "Platform/Files.h"
#include "WakelatchCore/WakelatchCore.h"

namespace wakelatch::soak {

/// Works like a watch, but without its threads: tick() itself acts and waits for its files.
class Guard {
 public:
  static constexpr double releaseDelaySeconds = 60;
  static constexpr double verifyEvery = 1;  ///< seconds of real time

  Guard(World& world, ScriptedTools& tools)
      : world_(world),
        tools_(tools),
        power_(tools),
        lid_(tools),
        processes_(tools),
        texts_(world.screen),
        files_(platform::homeDirectory(), 12, verifyEvery),
        lookFiles_(files_),
        sessions_(lookFiles_),
        activity_(processes_, texts_, sessions_),
        controller(tools, tools, FileLogger::shared(), world.tool().string()),
        keepAwake(controller, notifier_, releaseDelaySeconds, /*toolGivesWord=*/false,
                  {{.promptShown = [this](const auto& text) { tools_.isPromptAnnounced = !!text; },
                    .isCancelled = [] { return false; },
                    .now = [this] { return world_.now(); }},
                   [] { return true; }}),
        usage(FileLogger::shared(), store_.open(world.now()).metrics) {
    keepAwake.endOrphans();
    keepAwake.startUp();
  }

  void tick() {
    const Timestamp now = world_.now();
    power = power_.snapshot();
    const LidState lid = lid_.lidState();
    lookFiles_.beginLook();
    const auto signals = activity_.detectPerApp(world_.settings, power, now);
    const ActivitySignal signal = strongest(signals);
    machine_.forgetFuture(now);
    const host::Held before = keepAwake.held();
    const GuardDecision decision = machine_.evaluate(world_.mode(), world_.settings, power, lid,
                                                     signal, before.isHeld(), world_.heat, now);
    wish = host::makeWish(decision, world_.settings, power, lid, world_.heat, now);
    tools_.isDanger = wish.isDanger;
    keepAwake.apply(wish);
    held = keepAwake.held();
    countsTime = before.isToolRunning() && before.isToolProven;
    const host::KnownAgent agent{{},
                                 lookFiles_.newestModification({".claude/projects/**/*.jsonl"})};
    if (usage.record({.mode = world_.mode(),
                      .settings = world_.settings,
                      .power = power,
                      .lidState = lid,
                      .strongest = signal,
                      .signals = signals,
                      .agents = {{usage.metrics().sessionAgentID.value_or(""), agent}},
                      .decision = decision,
                      .preventsSleep = countsTime,
                      .now = now})) {
      save();
    }
    host::OneTick tick;
    tick.seen.at = now;
    tick.seen.evidence.merged = signals;
    tick.decision = decision;
    pace_.follow(tick, held);
    world_.isWatchQuiet = pace_.isQuiet();
    wrongFiles += files_.verify(0.02);
  }

  /// Saves the statistics; returns whether they are on disk now.
  bool save() {
    saver_.usage(usage.metrics());
    return saver_.finish(60) && !hasFailedToSave;
  }

  PowerSnapshot power;
  host::Wish wish;
  host::Held held;             ///< after the last tick
  bool countsTime = false;     ///< whether the last tick counted as one with sleep prevented
  std::size_t wrongFiles = 0;  ///< session files that had changed without a notice
  std::atomic<bool> hasFailedToSave{false};

 private:
  World& world_;
  ScriptedTools& tools_;
  PowerMonitor power_;
  LidStateDetector lid_;
  ProcessDetector processes_;
  AccessibilityDetector texts_;
  WatchingFileProbe files_;
  host::LookFiles lookFiles_;
  SessionActivityDetector sessions_;
  ActivityDetector activity_;
  AgentStateMachine machine_;
  host::Pace pace_;
  host::Notifier notifier_{[this](const std::string& text) {
    if (text.starts_with("usage:")) hasFailedToSave = true;
  }};
  host::UsageStore store_{host::usageFile()};

 public:
  SleepController controller;
  host::KeepAwake keepAwake;
  host::UsageRecorder usage;

 private:
  host::Saver saver_{store_, notifier_};
};

}  // namespace wakelatch::soak
