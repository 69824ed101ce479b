#include "WakelatchCore/ActivityDetector.h"

#include <algorithm>
#include <utility>

#include "Platform/Text.h"

namespace wakelatch {
namespace {

/// Signals by the composed form of their name, whose UTF-8 sorts as its Unicode scalars do.
using SignalsByName = std::map<std::string, ActivitySignal>;

/// Keeps the stronger signal of a name; of equally strong ones the earlier, unless only the later
/// one says which text it saw.
void merge(SignalsByName& merged, const std::vector<ActivitySignal>& signals) {
  for (const ActivitySignal& signal : signals) {
    if (!signal.appName) continue;
    const auto [entry, isNew] = merged.try_emplace(platform::composed(*signal.appName), signal);
    ActivitySignal& existing = entry->second;
    if (signal.strength > existing.strength ||
        (signal.strength == existing.strength && signal.matchedText && !existing.matchedText)) {
      existing = signal;
    }
  }
}

bool isRecent(std::optional<Timestamp> time, Timestamp now, double window) {
  return time && !(secondsBetween(*time, now) > window);
}

template <class Map>
auto lookUp(const Map& map, const std::string& key) {
  const auto found = map.find(key);
  return found == map.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

ActivityDetector::Evidence ActivityDetector::gather(const GuardSettings& settings,
                                                    const PowerSnapshot& power, Timestamp now) {
  Evidence evidence;
  evidence.process = processDetector_.inspect(settings, power);

  std::vector<ActivitySignal> processSignals;
  std::map<std::string, std::int64_t> processCounts;
  for (const auto& [signal, cpuPercent, thresholdPercent, trustsCPU] : evidence.process) {
    processSignals.push_back(signal);
    if (!signal.appName) continue;
    processLastSeenAt_[*signal.appName] = now;
    if (signal.sessionCount) processCounts[*signal.appName] = *signal.sessionCount;
  }

  const AgentResolver resolver = AgentResolver::make(settings);
  evidence.accessibility = sift(accessibilityDetector_.detectPerApp(settings), resolver,
                                shouldEmitTerminalAccessibilitySignal, now);
  evidence.session = sift(
      sessionDetector_.detectPerApp(settings, now, SessionActivityDetector::defaultFreshnessWindow),
      resolver, shouldEmitSessionSignal, now);
  const auto sessionCounts = sessionDetector_.sessionCountsPerApp(
      settings, now, SessionActivityDetector::defaultSessionCountWindow);

  SignalsByName merged;
  merge(merged, processSignals);
  merge(merged, evidence.accessibility.kept);
  merge(merged, evidence.session.kept);
  for (auto& [name, signal] : merged) {
    const std::optional<std::int64_t> processes = lookUp(processCounts, *signal.appName);
    signal.processPresent = processes.has_value();
    signal.sessionCount = processes;
    // Session files, where an agent has them, tell more than processes: none changed means that no
    // session is known to be at work.
    if (const auto files = lookUp(sessionCounts, *signal.appName)) {
      signal.sessionCount = *files > 0 ? std::optional<std::int64_t>(*files) : std::nullopt;
    }
    evidence.merged.push_back(std::move(signal));
  }
  return evidence;
}

ActivityDetector::Findings ActivityDetector::sift(std::vector<ActivitySignal> signals,
                                                  const AgentResolver& resolver, Rule& rule,
                                                  Timestamp now) const {
  Findings findings;
  for (ActivitySignal& signal : signals) {
    const auto& profiles = resolver.profiles();
    // The names of the user's own targets belong to no profile.
    const auto profile = std::find_if(
        profiles.begin(), profiles.end(),
        [&](const AgentProfile& candidate) { return candidate.displayName == signal.appName; });
    const bool isBelieved =
        profile == profiles.end() ||
        rule(*profile, processLastSeenAt(*signal.appName), now, sharedSessionProcessWindow);
    (isBelieved ? findings.kept : findings.dropped).push_back(std::move(signal));
  }
  return findings;
}

std::vector<ActivitySignal> ActivityDetector::detectPerApp(const GuardSettings& settings,
                                                           const PowerSnapshot& power,
                                                           Timestamp now) {
  return gather(settings, power, now).merged;
}

ActivitySignal ActivityDetector::detect(const GuardSettings& settings, const PowerSnapshot& power,
                                        Timestamp now) {
  return strongest(detectPerApp(settings, power, now));
}

std::optional<Timestamp> ActivityDetector::processLastSeenAt(const std::string& appName) const {
  return lookUp(processLastSeenAt_, appName);
}

bool ActivityDetector::shouldEmitTerminalAccessibilitySignal(
    const AgentProfile& profile, std::optional<Timestamp> processLastSeenAt, Timestamp now,
    double window) {
  return !profile.scanTerminalText || isRecent(processLastSeenAt, now, window);
}

bool ActivityDetector::shouldEmitSessionSignal(const AgentProfile& profile,
                                               std::optional<Timestamp> processLastSeenAt,
                                               Timestamp now, double window) {
  return !profile.sessionGlobsSharedWithOtherApps || isRecent(processLastSeenAt, now, window);
}

}  // namespace wakelatch
