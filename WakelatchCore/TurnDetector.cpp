#include "WakelatchCore/TurnDetector.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace wakelatch {
namespace {

/// Systems report a process's start in coarse steps, and a file's time may be rounded down.
constexpr double clockMargin = 2;  // seconds

/// A longer time between two ticks means that the machine slept or the clock was set, not that the
/// agent was silent.
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
  const double passed = lastTick_ ? secondsBetween(*lastTick_, now) : 0;
  lastTick_ = now;
  if (passed < 0) {  // the clock was set back: nothing has begun later than now
    for (auto& [name, agent] : agents_) {
      for (auto& [session, seen] : agent.records) seen.since = std::min(seen.since, now);
    }
  }
  std::vector<AgentTurns> turns;
  std::set<std::int32_t> running;
  const AgentResolver resolver = profiles_.watched(settings);
  for (const AgentProfile& profile : resolver.profiles()) {
    if (profile.turnRecords.empty()) continue;
    const auto found =
        std::find_if(processes.begin(), processes.end(), [&](const AgentProcesses& candidate) {
          return candidate.signal.appName == profile.displayName && !candidate.sessions.empty();
        });
    // An agent that is not found is kept: the listing may have failed, or the agent may come back.
    if (found == processes.end()) continue;
    Agent& agent = agents_[profile.displayName];
    follow(agent, profile, *found, now);
    turns.push_back(sumUp(agent, profile.displayName));
    turns.back().hasGivenUp = giveUp(agent, *found, std::clamp(passed, 0.0, longestTick), now);
    if (turns.back().hasGivenUp) {
      turns.back() = sumUp(agent, profile.displayName);
      turns.back().hasGivenUp = true;
    }
    for (const std::int32_t pid : agent.sessions) {
      const Timestamp start = *startOf(pid, now);
      AgentTurns& told = turns.back();
      told.firstStartedAt =
          pid == *agent.sessions.begin() ? start : std::min(told.firstStartedAt, start);
      told.startedAt = std::max(told.startedAt, start);
    }
    for (const AgentSession& session : found->sessions) {
      running.insert(session.processes.begin(), session.processes.end());
    }
  }
  if (!running.empty()) {
    std::erase_if(starts_, [&](const auto& entry) { return !running.contains(entry.first); });
  }
  return turns;
}

/// Marks turns that have been silent for too long; returns whether it has marked one.
bool TurnDetector::giveUp(Agent& agent, const AgentProcesses& processes, double elapsed,
                          Timestamp now) {
  bool hasGivenUp = false;
  for (auto& [session, seen] : agent.records) {
    if (seen.record.state != TurnState::working || seen.owners.empty()) continue;
    const bool isLoaded = processes.cpuPercent >= processes.thresholdPercent;
    seen.silentSeconds = isLoaded ? 0 : seen.silentSeconds + elapsed;
    if (seen.isGivenUp || seen.silentSeconds < longestSilence) continue;
    seen.isGivenUp = !hasStartedProcess(processes, seen.since, now);
    seen.silentSeconds = 0;
    hasGivenUp = hasGivenUp || seen.isGivenUp;
  }
  return hasGivenUp;
}

void TurnDetector::follow(Agent& agent, const AgentProfile& profile,
                          const AgentProcesses& processes, Timestamp now) {
  Pids sessions;
  agent.workers.clear();
  Timestamp earliest = now;
  for (const AgentSession& session : processes.sessions) {
    const auto start = startOf(session.pid, now);
    if (!start) continue;  // another user's
    sessions.insert(session.pid);
    if (session.isWorker) agent.workers.insert(session.pid);
    earliest = std::min(earliest, *start);
  }
  forgetEnded(agent, sessions);
  agent.sessions = sessions;

  const auto writers = [&](const TurnRecord& record) {
    Pids owners;
    for (const AgentSession& session : processes.sessions) {
      const auto& all = session.processes;
      if (record.pid && std::find(all.begin(), all.end(), *record.pid) == all.end()) continue;
      const auto start = startOf(session.pid, now);
      if (!start || secondsBetween(record.writtenAt, *start) > clockMargin) continue;
      owners.insert(session.pid);
    }
    return owners;
  };
  std::map<std::string, Seen> records;
  Pids written;  // owners of the records written since the previous tick
  for (TurnRecord& record : recordsOf(profile, after(earliest, -clockMargin))) {
    const auto known = agent.records.find(record.session);
    const bool isNew = known == agent.records.end();
    Seen seen = isNew ? firstSight(record, writers(record), now) : std::move(known->second);
    if (seen.record.writtenAt != record.writtenAt) {
      seen.silentSeconds = 0;
      seen.isGivenUp = seen.isInherited = false;
      if (seen.owners.empty())
        seen.owners = writers(record);  // a new process continues the session
    }
    const bool isWritten = isNew || seen.record.writtenAt != record.writtenAt;
    if (isWritten && seen.owners.size() == 1) written.insert(*seen.owners.begin());
    if (seen.told != record.state) seen.since = record.writtenAt;
    seen.told = record.state;
    seen.record = std::move(record);
    if (seen.told == TurnState::asksForTool) {
      seen.record.state =
          hasStartedProcess(processes, seen.since, now) ? TurnState::working : TurnState::waiting;
    }
    records.insert_or_assign(seen.record.session, std::move(seen));
  }
  for (auto& [session, seen] : records) {
    // The owner writes another record, so this one belonged to the session that has ended.
    if (seen.isInherited && written.contains(*seen.owners.begin())) {
      seen.owners.clear();
      seen.isInherited = false;
    }
  }
  addUnrecorded(profile, processes, agent, now, records);
  agent.records = std::move(records);
}

std::vector<TurnRecord> TurnDetector::recordsOf(const AgentProfile& profile, Timestamp since) {
  std::vector<TurnRecord> records;
  for (const TurnRecordFormat& format : profile.turnRecords) {
    auto told = reading_.records(format, since);
    std::move(told.begin(), told.end(), std::back_inserter(records));
  }
  mergeSessions(records);
  return records;
}

TurnDetector::Seen TurnDetector::firstSight(const TurnRecord& record, Pids owners, Timestamp now) {
  Seen seen;
  seen.record = record;
  seen.since = record.writtenAt;
  seen.told = record.state;
  seen.owners = std::move(owners);
  // The record may have been silent long before it was first seen.
  seen.silentSeconds = std::max(0.0, secondsBetween(record.writtenAt, now));
  if (record.state == TurnState::asksForTool && !seen.owners.empty()) {
    // The record may have been written after the tool started, so older processes may be the tool
    // too; but not those that the agent started during its own start-up.
    const Timestamp settled = after(*startOf(*seen.owners.begin(), now), startUpSeconds);
    seen.since = std::min(seen.since, settled);
  }
  return seen;
}

/// Adds records of working sessions for what the agent's records do not show: for sessions without
/// a record if they have a network connection, and for sessions that run a tool.
void TurnDetector::addUnrecorded(const AgentProfile& profile, const AgentProcesses& processes,
                                 const Agent& agent, Timestamp now,
                                 std::map<std::string, Seen>& records) {
  const auto believed =
      static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [](const auto& entry) {
        return !entry.second.owners.empty();
      }));
  for (const AgentSession& session : processes.sessions) {
    if (!agent.sessions.contains(session.pid)) continue;
    const Pids owner{session.pid};
    const bool isRecorded = believed >= agent.sessions.size() ||
                            std::any_of(records.begin(), records.end(), [&](const auto& entry) {
                              return entry.second.owners == owner;
                            });
    const bool isWorking = session.runsTool || (profile.isConnectedOnlyInTurns && !isRecorded &&
                                                reading_.isConnected(session.pid));
    if (!isWorking) continue;
    const std::string name = "process " + std::to_string(session.pid);
    const auto known = agent.records.find(name);
    Seen& seen = records[name];
    seen = known != agent.records.end() ? known->second
                                        : firstSight({name, TurnState::working, now}, owner, now);
    if (session.runsTool) seen.silentSeconds = 0;  // even an old tool is a sign of life
  }
}

/// Removes ended sessions from the owners of records. A session that is the only owner of another
/// record is removed too: the record was more likely the ended session's.
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
      seen.isInherited = seen.owners.size() == 1;
    }
  }
}

/// Whether a process runs that the agent has started since `since`.
bool TurnDetector::hasStartedProcess(const AgentProcesses& processes, Timestamp since,
                                     Timestamp now) {
  for (const AgentSession& session : processes.sessions) {
    for (const std::int32_t pid : session.processes) {
      const auto start = startOf(pid, now);
      if (pid != session.pid && start && secondsBetween(*start, since) < clockMargin) return true;
    }
  }
  return false;
}

/// The start of a process, asked for once, because the system's answer may change when the clock is
/// set; never later than `now`, because the clock may have been set back. Absent for processes of
/// other users.
std::optional<Timestamp> TurnDetector::startOf(std::int32_t pid, Timestamp now) {
  auto known = starts_.find(pid);
  if (known == starts_.end()) {
    const auto start = reading_.processStart(pid);
    if (!start) return std::nullopt;
    known = starts_.emplace(pid, *start).first;
  }
  return known->second = std::min(known->second, now);
}

AgentTurns TurnDetector::sumUp(const Agent& agent, const std::string& appName) {
  AgentTurns turns{appName};
  Pids told = agent.workers;  // workers need no record of their own
  std::vector<const Pids*> shared;
  for (const auto& [session, seen] : agent.records) {
    if (seen.owners.empty() || seen.isGivenUp) continue;
    const TurnState state = seen.record.state;
    if (!turns.state || state < *turns.state ||
        (state == *turns.state && seen.since < turns.since)) {
      turns.state = state;
      turns.since = seen.since;
    }
    if (state == TurnState::unclear) continue;
    if (seen.owners.size() == 1) {
      told.insert(*seen.owners.begin());
    } else {
      shared.push_back(&seen.owners);
    }
  }
  // A session without a record of its own may own one of the records with several possible owners.
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
