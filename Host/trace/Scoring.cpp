#include "Host/trace/Scoring.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch::host {
namespace {

/// Which detector a signal comes from, told by the wording of its reason.
EvidenceKind kindOf(const ActivitySignal& signal, const ActivityDetector::Evidence& evidence) {
  if (signal.strength < SignalStrength::weak) return EvidenceKind::none;
  const auto isIt = [&](const ActivitySignal& other) {
    return other.appName == signal.appName && other.reason == signal.reason;
  };
  const auto isAmong = [&](const ActivityDetector::Findings& findings) {
    return std::any_of(findings.kept.begin(), findings.kept.end(), isIt);
  };
  for (const AgentTurns& turns : evidence.turns) {
    if (turns.appName != signal.appName || turns.state != TurnState::working) continue;
    if (signal.reason == turns.reason()) return EvidenceKind::turnRecord;
  }
  for (const AgentProcesses& agent : evidence.process) {
    if (agent.isOneShot && isIt(agent.signal)) return EvidenceKind::oneShot;
  }
  if (isAmong(evidence.session)) return EvidenceKind::sessionFile;
  if (isAmong(evidence.accessibility)) return EvidenceKind::uiText;
  return EvidenceKind::process;
}

}  // namespace

Sample sampleOf(const OneTick& tick) {
  const ActivityDetector::Evidence& evidence = tick.seen.evidence;
  return {.at = tick.seen.at,
          .isHeld = tick.decision.shouldPreventSleep,
          .isSleepAsked = tick.decision.shouldSleepNow,
          .agent = tick.decision.detectedAppName.value_or(""),
          .evidence = kindOf(tick.seen.strongest, evidence),
          .hasProcess = !evidence.process.empty(),
          .hasLoad = std::any_of(evidence.process.begin(), evidence.process.end(),
                                 [](const AgentProcesses& agent) {
                                   return agent.cpuPercent >= agent.thresholdPercent;
                                 }),
          .graceSeconds = tick.settings.profile(tick.seen.power).idleGracePeriodSeconds};
}

ScoredTrace scoredTrace(const std::filesystem::path& trace, const std::filesystem::path& truth,
                        const Replay::Options& options) {
  ScoredTrace result{trace.filename().string(), {}, loadTruth(truth)};
  const auto& known = options.profiles.all();
  for (const TruthInterval& interval : result.intervals) {
    if (std::any_of(known.begin(), known.end(),
                    [&](const AgentProfile& profile) { return profile.id == interval.agent; }))
      continue;
    throw std::runtime_error(truth.string() + ": there is no agent \"" + interval.agent +
                             "\"; see: wakelatch agents --json");
  }
  Replay replay(trace, options);
  while (const auto tick = replay.next()) result.samples.push_back(sampleOf(*tick));
  return result;
}

Score score(const ScoredTrace& trace, const AgentProfiles& profiles) {
  std::map<std::string, std::string> names;
  for (const AgentProfile& profile : profiles.all()) {
    names.emplace(profile.id, profile.displayName);
  }
  return score(trace.samples, trace.intervals, names);
}

}  // namespace wakelatch::host
