#include "WakelatchCore/TurnDetector.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace wakelatch {
namespace {

/// A process's start is told in steps, and a file's time may be rounded down.
constexpr double clockMargin = 2;  // seconds

/// More than this between two ticks is sleep, or a clock that was set: nobody was silent then.
constexpr double longestTick = 10;  // seconds

}  // namespace

std::string AgentTurns::reason() const {
  if (state == TurnState::working) return appName + " is in a turn";
  if (state == TurnState::waiting) return appName + " waits for you";
  return {};
}

std::vector<AgentTurns> TurnDetector::detect(const GuardSettings& settings,
                                             const std::vector<AgentProcesses>& processes,
                                             Timestamp now) {
  const double elapsed =
      lastTick_ ? std::clamp(secondsBetween(*lastTick_, now), 0.0, longestTick) : 0;
  lastTick_ = now;
  std::map<std::string, Agent> running;
  std::map<std::int32_t, Timestamp> starts;
  std::vector<AgentTurns> turns;
  const AgentResolver resolver = profiles_.watched(settings);
  for (const AgentProfile& profile : resolver.profiles()) {
    const auto found =
        std::find_if(processes.begin(), processes.end(), [&](const AgentProcesses& candidate) {
          return candidate.signal.appName == profile.displayName && !candidate.sessions.empty();
        });
    if (profile.turnRecords.empty() || found == processes.end()) continue;
    Agent agent = std::move(agents_[profile.displayName]);
    follow(agent, profile, *found, now);
    bool hasGivenUp = false;
    for (auto& [session, seen] : agent.records) {
      if (seen.record.state != TurnState::working || seen.owners.empty()) continue;
      const bool isLoaded = found->cpuPercent >= found->thresholdPercent;
      seen.silentSeconds = isLoaded ? 0 : seen.silentSeconds + elapsed;
      if (seen.isGivenUp || seen.silentSeconds < longestSilence) continue;
      seen.isGivenUp = !hasStartedProcess(*found, seen.since, now);
      hasGivenUp = hasGivenUp || seen.isGivenUp;
      seen.silentSeconds = 0;
    }
    turns.push_back(sumUp(agent, profile.displayName));
    turns.back().hasGivenUp = hasGivenUp;
    for (const AgentSession& session : found->sessions) {
      for (const std::int32_t pid : session.processes) starts.insert(starts_.extract(pid));
    }
    running.emplace(profile.displayName, std::move(agent));
  }
  agents_ = std::move(running);
  starts_ = std::move(starts);
  return turns;
}

void TurnDetector::follow(Agent& agent, const AgentProfile& profile,
                          const AgentProcesses& processes, Timestamp now) {
  Pids sessions;
  agent.workers.clear();
  Timestamp earliest = now;
  for (const AgentSession& session : processes.sessions) {
    sessions.insert(session.pid);
    if (session.isWorker) agent.workers.insert(session.pid);
    earliest = std::min(earliest, startOf(session.pid, now));
  }
  forgetEnded(agent, sessions);
  agent.sessions = sessions;

  const auto writers = [&](const TurnRecord& record) {
    Pids owners;
    for (const AgentSession& session : processes.sessions) {
      const auto& all = session.processes;
      if (record.pid && std::find(all.begin(), all.end(), *record.pid) == all.end()) continue;
      if (secondsBetween(record.writtenAt, startOf(session.pid, now)) > clockMargin) continue;
      owners.insert(session.pid);
    }
    return owners;
  };
  std::map<std::string, Seen> records;
  for (TurnRecord& record : recordsOf(profile, after(earliest, -clockMargin))) {
    const auto known = agent.records.find(record.session);
    Seen seen = known == agent.records.end() ? firstSight(record, writers(record))
                                             : std::move(known->second);
    if (seen.record.writtenAt != record.writtenAt) {
      seen.silentSeconds = 0;
      seen.isGivenUp = false;
      if (seen.owners.empty()) seen.owners = writers(record);  // taken up again
    }
    if (seen.told != record.state) seen.since = record.writtenAt;
    seen.told = record.state;
    seen.record = std::move(record);
    if (seen.told == TurnState::asksForTool) {
      seen.record.state =
          hasStartedProcess(processes, seen.since, now) ? TurnState::working : TurnState::waiting;
    }
    records.insert_or_assign(seen.record.session, std::move(seen));
  }
  addUnrecorded(profile, processes, agent, now, records);
  agent.records = std::move(records);
}

std::vector<TurnRecord> TurnDetector::recordsOf(const AgentProfile& profile, Timestamp since) {
  std::vector<TurnRecord> records;
  for (const TurnRecordFormat& format : profile.turnRecords) {
    for (TurnRecord& record : reading_.records(format, since)) {
      const auto same = std::find_if(records.begin(), records.end(), [&](const TurnRecord& other) {
        return other.session == record.session;
      });
      if (same == records.end()) {
        records.push_back(std::move(record));
      } else if (record.state == TurnState::waiting && same->state == TurnState::working) {
        *same = std::move(record);
      }
    }
  }
  return records;
}

TurnDetector::Seen TurnDetector::firstSight(const TurnRecord& record, Pids owners) {
  Seen seen;
  seen.record = record;
  seen.since = record.writtenAt;
  seen.told = record.state;
  seen.owners = std::move(owners);
  return seen;
}

/// What can be told of sessions whose records say nothing, or not all.
void TurnDetector::addUnrecorded(const AgentProfile& profile, const AgentProcesses& processes,
                                 const Agent& agent, Timestamp now,
                                 std::map<std::string, Seen>& records) {
  for (const AgentSession& session : processes.sessions) {
    const Pids owner{session.pid};
    const bool isRecorded = std::any_of(records.begin(), records.end(), [&](const auto& entry) {
      return entry.second.owners == owner;
    });
    const bool isWorking =
        session.runsTool ||
        (profile.isConnectedOnlyInTurns && !isRecorded &&
         std::any_of(session.processes.begin(), session.processes.end(),
                     [this](std::int32_t pid) { return reading_.isConnected(pid); }));
    if (!isWorking) continue;
    const std::string name = "process " + std::to_string(session.pid);
    const auto known = agent.records.find(name);
    records.emplace(name, known != agent.records.end()
                              ? known->second
                              : firstSight({name, TurnState::working, now}, owner));
  }
}

/// Of two sessions that may have written a record one has ended: it was that one's, if the other
/// has a record of its own.
void TurnDetector::forgetEnded(Agent& agent, const Pids& sessions) {
  for (const std::int32_t ended : agent.sessions) {
    if (sessions.contains(ended)) continue;
    Pids withOwnRecord;
    for (const auto& [session, seen] : agent.records) {
      if (seen.owners.size() == 1) withOwnRecord.insert(*seen.owners.begin());
    }
    for (auto& [session, seen] : agent.records) {
      if (seen.owners.erase(ended) == 0) continue;
      std::erase_if(seen.owners, [&](std::int32_t pid) { return withOwnRecord.contains(pid); });
    }
  }
}

/// Whether something runs that the agent has started since then.
bool TurnDetector::hasStartedProcess(const AgentProcesses& processes, Timestamp since,
                                     Timestamp now) {
  for (const AgentSession& session : processes.sessions) {
    for (const std::int32_t pid : session.processes) {
      if (pid != session.pid && secondsBetween(startOf(pid, now), since) < clockMargin) return true;
    }
  }
  return false;
}

/// As told when the process was seen first: what the system tells may move with the clock, and with
/// a clock that has been set back a process has begun at the latest now.
Timestamp TurnDetector::startOf(std::int32_t pid, Timestamp now) {
  const auto found = starts_.find(pid);
  Timestamp& start =
      found != starts_.end()
          ? found->second
          : starts_.emplace(pid, reading_.processStart(pid).value_or(now)).first->second;
  return start = std::min(start, now);
}

AgentTurns TurnDetector::sumUp(const Agent& agent, const std::string& appName) {
  AgentTurns turns{appName};
  Pids told = agent.workers;  // they are no sessions of their own
  std::vector<const Pids*> shared;
  for (const auto& [session, seen] : agent.records) {
    if (seen.owners.empty() || seen.isGivenUp) continue;
    if (seen.record.state == TurnState::unclear) continue;
    const TurnState state = seen.record.state;
    if (!turns.state || state < *turns.state ||
        (state == *turns.state && seen.since < turns.since)) {
      turns.state = state;
      turns.since = seen.since;
    }
    if (seen.owners.size() == 1) {
      told.insert(*seen.owners.begin());
    } else {
      shared.push_back(&seen.owners);
    }
  }
  // Each of the others may have one of the records that may be several sessions'.
  Pids others;
  std::set_difference(agent.sessions.begin(), agent.sessions.end(), told.begin(), told.end(),
                      std::inserter(others, others.end()));
  std::size_t records = 0;
  for (const Pids* owners : shared) {
    const auto isOther = [&](std::int32_t pid) { return others.contains(pid); };
    if (std::any_of(owners->begin(), owners->end(), isOther)) ++records;
    told.insert(owners->begin(), owners->end());
  }
  turns.tellsOfEverySession =
      records >= others.size() &&
      std::includes(told.begin(), told.end(), agent.sessions.begin(), agent.sessions.end());
  return turns;
}

}  // namespace wakelatch
