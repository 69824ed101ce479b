#include "WakelatchCore/ActivityDetector.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "Platform/Text.h"

namespace wakelatch {
namespace {

/// Signals by the composed (NFC) form of their name. UTF-8 sorts like Unicode scalars.
using SignalsByName = std::map<std::string, ActivitySignal>;

/// Keeps the strongest signal of each name; among equals the first, but one with a matched text
/// wins over one without.
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

const AgentTurns* turnsOf(const std::vector<AgentTurns>& turns,
                          const std::optional<std::string>& appName) {
  const auto found = std::find_if(turns.begin(), turns.end(), [&](const AgentTurns& candidate) {
    return candidate.appName == appName;
  });
  return found == turns.end() ? nullptr : &*found;
}

/// Whether the load comes from the agent's own processes, not from what they started. It need not
/// be work: the agent may draw its screen or start up.
bool isOwnLoad(const AgentProcesses& agent) {
  return agent.cpuPercent - agent.ownCPUPercent < agent.thresholdPercent;
}

/// Whether all sessions have records and none of these says that a turn is being worked on.
bool isAtRest(const AgentTurns* turns) {
  return turns != nullptr && turns->state && turns->tellsOfEverySession &&
         turns->state != TurnState::working && turns->state != TurnState::unclear;
}

/// Whether a session has just been started and is not in a turn yet, by its record.
bool startsUp(const AgentTurns& turns, Timestamp now) {
  return turns.state && turns.state != TurnState::working &&
         secondsBetween(turns.startedAt, now) < TurnDetector::startUpSeconds;
}

/// Whether the agent's turn records show that the load of its processes is not work.
/// @param isLasting  whether the load was at the threshold in the previous tick too
bool isNoWork(const AgentProcesses& agent, const AgentTurns* turns, bool isLasting, Timestamp now) {
  if (turns == nullptr) return false;
  if (agent.isOneShot) {  // a real one-shot run ends soon after its turn
    const double atRest = secondsBetween(turns->since, now);
    return isAtRest(turns) && atRest > ActivityDetector::oneShotEndSeconds && isOwnLoad(agent);
  }
  if (startsUp(*turns, now)) return true;
  // If the record is unclear, own load counts as work once it lasts for more than one tick.
  const bool isOpen = turns->state == TurnState::unclear;
  return isOwnLoad(agent) && (isAtRest(turns) || (isOpen && !isLasting));
}

/// The profile with this display name; null for the user's own targets.
const AgentProfile* profileNamed(const AgentResolver& resolver, const std::string& appName) {
  const auto& profiles = resolver.profiles();
  const auto found =
      std::find_if(profiles.begin(), profiles.end(),
                   [&](const AgentProfile& candidate) { return candidate.displayName == appName; });
  return found == profiles.end() ? nullptr : &*found;
}

/// The signal of an agent that is in a turn or waits; absent in other states.
std::optional<ActivitySignal> signalOf(const AgentTurns& turns) {
  std::string reason = turns.reason();
  if (reason.empty()) return std::nullopt;
  return ActivitySignal{.strength = turns.state == TurnState::working ? SignalStrength::strong
                                                                      : SignalStrength::presence,
                        .appName = turns.appName,
                        .reason = std::move(reason)};
}

/// The value for an agent's name in a map by composed names; absent if there is none.
template <class Map>
auto lookUp(const Map& map, const std::string& name) {
  const auto found = map.find(platform::composed(name));
  return found == map.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

ActivityDetector::Evidence ActivityDetector::gather(const GuardSettings& settings,
                                                    const PowerSnapshot& power, Timestamp now) {
  Evidence evidence;
  evidence.process = processDetector_.inspect(settings, power);
  if (turnDetector_ != nullptr) {
    evidence.turns = turnDetector_->detect(settings, evidence.process, now);
  }

  std::vector<ActivitySignal> processSignals;
  std::map<std::string, std::int64_t> processCounts;
  for (const AgentProcesses& agent : evidence.process) {
    const ActivitySignal& signal = agent.signal;
    if (signal.strength == SignalStrength::none) continue;
    processSignals.push_back(signal);
    if (!signal.appName) continue;
    const std::string name = platform::composed(*signal.appName);
    const AgentTurns* turns = turnsOf(evidence.turns, signal.appName);
    const bool isLasting = !loaded_.insert(name).second;
    if (agent.cpuPercent < agent.thresholdPercent) loaded_.erase(name);
    if (isNoWork(agent, turns, isLasting, now)) {
      processSignals.back().strength = SignalStrength::presence;
      processSignals.back().reason = *signal.appName + " is running";
    }
    processLastSeenAt_[name] = now;
    if (signal.sessionCount) processCounts[name] = *signal.sessionCount;
  }

  const AgentResolver resolver = profiles_.watched(settings);
  evidence.accessibility = sift(accessibilityDetector_.detectPerApp(settings), resolver,
                                shouldEmitTerminalAccessibilitySignal, now);
  evidence.session = siftSessions(
      sessionDetector_.inspect(settings, now, SessionActivityDetector::defaultFreshnessWindow),
      resolver, evidence.turns, now);
  std::map<std::string, std::int64_t> sessionCounts;
  for (const auto& [name, count] : sessionDetector_.sessionCountsPerApp(
           settings, now, SessionActivityDetector::defaultSessionCountWindow)) {
    sessionCounts[platform::composed(name)] = count;
  }

  SignalsByName merged;
  for (const AgentTurns& turns : evidence.turns) {
    if (const auto signal = signalOf(turns)) merge(merged, {*signal});
  }
  merge(merged, processSignals);
  merge(merged, evidence.accessibility.kept);
  merge(merged, evidence.session.kept);
  for (auto& [name, signal] : merged) {
    const std::optional<std::int64_t> processes = lookUp(processCounts, name);
    signal.processPresent = processes.has_value();
    signal.sessionCount = processes;
    // Session files count an agent's sessions better than processes do. If it has such files but
    // none has changed lately, the number of sessions at work is not known.
    if (const auto files = lookUp(sessionCounts, name)) {
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
    const AgentProfile* profile = profileNamed(resolver, *signal.appName);
    const bool isBelieved = profile == nullptr || rule(*profile, processLastSeenAt(*signal.appName),
                                                       now, sharedSessionProcessWindow);
    (isBelieved ? findings.kept : findings.dropped).push_back(std::move(signal));
  }
  return findings;
}

/// Drops session files that show no work although they are fresh: the agent's turn records say that
/// it is at rest, it wrote them while it ended, or they are older than its running sessions.
ActivityDetector::Findings ActivityDetector::siftSessions(std::vector<SessionActivity> sessions,
                                                          const AgentResolver& resolver,
                                                          const std::vector<AgentTurns>& turns,
                                                          Timestamp now) const {
  Findings findings;
  std::vector<ActivitySignal> signals;
  for (SessionActivity& session : sessions) {
    const std::string& appName = *session.signal.appName;
    const AgentProfile* profile = profileNamed(resolver, appName);
    const auto lastSeen = processLastSeenAt(appName);
    const bool hasLeft = turnDetector_ != nullptr && profile != nullptr &&
                         !profile->turnRecords.empty() && lastSeen && *lastSeen != now &&
                         secondsBetween(*lastSeen, session.newest) <= leavingSeconds;
    const AgentTurns* own = turnsOf(turns, appName);
    const bool isOlder = own != nullptr && session.newest < own->firstStartedAt;
    if (hasLeft || isOlder || isAtRest(own)) {
      findings.dropped.push_back(std::move(session.signal));
    } else {
      signals.push_back(std::move(session.signal));
    }
  }
  Findings rest = sift(std::move(signals), resolver, shouldEmitSessionSignal, now);
  findings.kept = std::move(rest.kept);
  std::move(rest.dropped.begin(), rest.dropped.end(), std::back_inserter(findings.dropped));
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
