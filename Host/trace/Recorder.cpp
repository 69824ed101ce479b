#include "Host/trace/Recorder.h"

#include <sys/utsname.h>

#include <algorithm>
#include <utility>

#include "Platform/Files.h"

namespace wakelatch::host {
namespace {

std::string systemName() {
  utsname names{};
  if (::uname(&names) != 0) return "unknown";
  return std::string(names.sysname) + " " + names.release + " " + names.machine;
}

/// A name for a path: the parts that session counts depend on, and a number for the rest.
std::string anonymous(const std::string& path, std::size_t number) {
  const bool isHelper = path.compare(path.rfind('/') + 1, 6, "agent-") == 0;
  return (path.find("/subagents/") == path.npos ? "" : "/subagents/") +
         std::string(isHelper ? "agent-" : "s") + std::to_string(number);
}

/// If the value has changed, sets `told` and the member `line` of the trace's line to `now`.
template <class Line, class T>
void tell(Line& line, T& told, T now) {
  if (told == now) return;
  told = std::move(now);
  line = told;
}

template <class T>
std::optional<T> unlessEmpty(T value) {
  return value.empty() ? std::nullopt : std::optional<T>(std::move(value));
}

}  // namespace

Recorder::Recorder(const Sources& machine, Options options)
    : options_(std::move(options)),
      profiles_(options_.profiles),
      tools_(machine.tools),
      files_(machine.files),
      turns_(machine.turns),
      screen_(machine.accessibility),
      sources_{machine.beginLook, tools_, screen_, files_, turns_, machine.heat} {}

std::string Recorder::header(const GuardSettings& settings, Timestamp now) {
  TraceHeader header;
  header.program = "wakelatch " WAKELATCH_VERSION;
  header.system = systemName();
  header.startedAt = lastMs_ = platform::millisecondsSince1970(now);
  header.intervalSeconds = options_.intervalSeconds;
  header.mode = options_.mode;
  header.pid = options_.pid;
  header.settings = settings;
  header.catalogue = profiles_.all();
  if (!options_.keepsAllProcesses) {
    header.leftOut = {
        "processes that belong to no watched agent, to none's tree and to none's ancestors",
        "arguments, but for programs, names of options and a few fixed words",
        "directories of the user's own on the paths of programs",
        "all but the program's name of what agents start and of what started them"};
  }
  header.leftOut.insert(header.leftOut.end(),
                        {"names and contents of session files",
                         "texts of windows, but for the phrases that are looked for",
                         "the name of the home directory"});
  follow(settings);
  return privacy_->withoutHome(encode(header, traceDates));  // a catalogue may name it
}

void Recorder::follow(const GuardSettings& settings) {
  settings_ = settings;
  const AgentResolver agents = profiles_.watched(settings);
  privacy_.emplace(agents, settings.targetApps, platform::homeDirectory().string());
  for (auto& entry : rows_) {
    Row& row = entry.second;
    if (std::exchange(row.isAgent, privacy_->isAgent(row.process)) != row.isAgent)
      row.isCurrent = false;
  }

  phrases_.clear();
  const auto add = [this](const std::vector<std::string>& phrases) {
    phrases_.insert(phrases_.end(), phrases.begin(), phrases.end());
  };
  for (const AgentProfile& profile : agents.profiles()) {
    add(profile.activePhrases);
    add(profile.idlePhrases);
  }
  add(settings.activePhrases);
  add(settings.idlePhrases);
  std::vector<PhraseIndex::Lists> lists;
  for (const std::string& phrase : phrases_) lists.push_back({{&phrase, 1}, {}});
  phraseIndex_.emplace(lists);
}

std::string Recorder::tick(const Observation& seen, const GuardSettings& settings,
                           const Held& held) {
  TraceTick tick;
  const std::int64_t ms = platform::millisecondsSince1970(seen.at);
  tick.ms = ms - std::exchange(lastMs_, ms);
  if (settings_ != settings) {
    follow(settings);
    tick.settings = settings;
  }
  tell(tick.held, held_, held);
  tell(tick.battery, battery_, std::optional(seen.power.rawDescription));
  tell(tick.lid, lid_, seen.lidState);
  tell(tick.heat, heat_, seen.thermalState);
  tellProcesses(tick);
  tellFiles(tick, seen.at);
  tellTurns(tick);
  tellScreen(tick);
  return encode(tick, traceDates);
}

void Recorder::tellProcesses(TraceTick& tick) {
  ++ticks_;
  auto listed = ProcessDetector::parsePSOutput(tools_.usage);
  const auto arguments = ProcessDetector::parsePSArgs(tools_.arguments);
  std::vector<Row*> rows;  // as listed
  rows.reserve(listed.size());
  for (ProcessSnapshot& process : listed) {
    const auto found = arguments.find(process.pid);
    if (found != arguments.end()) process.arguments = found->second;
    Row& row = rows_[process.pid];
    if (row.seenIn == ticks_) continue;  // of several rows with one id the first counts
    const double cpu = std::exchange(process.cpuPercent, row.process.cpuPercent);
    if (row.process != process) {
      const bool isNew =
          row.process.command != process.command || row.process.arguments != process.arguments;
      row.process = std::move(process);
      if (isNew) row.isAgent = privacy_->isAgent(row.process);
      row.isCurrent = false;
    }
    row.process.cpuPercent = cpu;
    row.seenIn = ticks_;
    rows.push_back(&row);
  }

  std::vector<std::int64_t> gone;
  std::erase_if(rows_, [&](const auto& entry) {
    const Row& row = entry.second;
    if (row.seenIn == ticks_) return false;
    if (row.isTold) gone.push_back(entry.first);
    return true;
  });

  markKin(rows);
  std::map<std::string, TraceProcess> changed;
  std::map<std::string, double> cpu;
  std::vector<std::int64_t> order;
  for (Row* row : rows) {
    const bool isKept = options_.keepsAllProcesses || row->isOfAgent || row->isAncestor;
    if (!isKept) {
      if (std::exchange(row->isTold, false)) gone.push_back(row->process.pid);
      continue;
    }
    const std::string pid = std::to_string(row->process.pid);
    if (!row->isTold) row->toldCPU = 0;
    if (!row->isTold || !row->isCurrent) changed[pid] = traceOf(*row);
    row->isTold = row->isCurrent = true;
    // Loads of an agent's ancestors do not affect decisions.
    const double load = options_.keepsAllProcesses || row->isOfAgent ? row->process.cpuPercent : 0;
    if (std::exchange(row->toldCPU, load) != load) cpu[pid] = load;
    order.push_back(row->process.pid);
  }
  if (std::is_sorted(order.begin(), order.end())) order.clear();
  tick.processes = unlessEmpty(std::move(changed));
  tick.gone = unlessEmpty(std::move(gone));
  tick.cpu = unlessEmpty(std::move(cpu));
  tell(tick.order, order_, order);
}

/// Marks the processes that belong to an agent (its own and their descendants) and its ancestors.
/// Results are kept in all rows on the way up, so long chains are walked only once.
void Recorder::markKin(const std::vector<Row*>& rows) {
  for (Row* row : rows) {
    row->isOfAgent = row->isAgent;
    row->isAncestor = false;
  }
  const auto parentOf = [this](const Row& row) -> Row* {
    const auto found = rows_.find(row.process.parentPID);
    return found == rows_.end() ? nullptr : &found->second;
  };
  std::vector<Row*> path;
  for (Row* row : rows) {
    Row* up = row;
    while (up != nullptr && !up->isOfAgent && up->askedIn != ticks_) {
      up->askedIn = ticks_;  // no agent's for now; ends the walk if the links form a loop
      path.push_back(up);
      up = parentOf(*up);
    }
    for (Row* passed : path) passed->isOfAgent = up != nullptr && up->isOfAgent;
    path.clear();
    if (!row->isAgent) continue;
    // The system (process 1) does not count as an ancestor.
    while (row->process.parentPID > 1) {
      row = parentOf(*row);
      if (row == nullptr || std::exchange(row->isAncestor, true)) break;
    }
  }
}

TraceProcess Recorder::traceOf(const Row& row) const {
  ProcessSnapshot process = row.process;
  if (options_.keepsAllProcesses) {
    process.command = privacy_->withoutHome(process.command);
    process.arguments = privacy_->withoutHome(process.arguments);
  } else if (row.isAgent) {
    privacy_->reduceAgent(process);
  } else {
    privacy_->reduceOther(process);
  }
  return {process.parentPID, process.command, unlessEmpty(process.arguments)};
}

void Recorder::tellFiles(TraceTick& tick, Timestamp now) {
  tick.newest = unlessEmpty(changes(newest_, files_.newest));
  std::map<std::string, TraceTimes> sessions;
  for (const auto& [key, files] : files_.sessions) {
    TraceTimes times;
    for (const auto& [path, time] : files) {
      // A file that is too old for session counts is recorded as gone.
      if (secondsBetween(time, now) > SessionActivityDetector::defaultSessionCountWindow) continue;
      std::string& name = fileNames_[path];
      if (name.empty()) name = anonymous(path, fileNames_.size());
      times[name] = time;
    }
    TraceTimes changed = changes(sessions_[key], std::move(times));
    if (!changed.empty()) sessions[key] = std::move(changed);
  }
  tick.sessions = unlessEmpty(std::move(sessions));
}

void Recorder::tellTurns(TraceTick& tick) {
  std::map<std::string, std::map<std::string, TraceTurn>> changed;
  for (const auto& [key, records] : turns_.told) {
    std::map<std::string, TraceTurn> now;
    for (const TurnRecord& record : records) {
      // One name per session for all files, as records of the same session are merged.
      std::string& name = turnNames_[record.session];
      if (name.empty()) name = "t" + std::to_string(turnNames_.size());
      now[name] = {record.state, record.writtenAt, record.pid};
    }
    auto turns = changes(turnsTold_[key], std::move(now));
    if (!turns.empty()) changed[key] = std::move(turns);
  }
  tick.turns = unlessEmpty(std::move(changed));
  tick.started = unlessEmpty(changes(started_, turns_.started));
  tell(tick.connected, connected_, std::exchange(turns_.connected, {}));
}

void Recorder::tellScreen(TraceTick& tick) {
  if (!screen_.isSupported()) return;
  TraceScreen screen{screen_.isTrustedNow, {}};
  for (const auto& [processID, text] : screen_.texts) {
    const auto application =
        std::find_if(screen_.running.begin(), screen_.running.end(),
                     [id = processID](const auto& running) { return running.processID == id; });
    if (application == screen_.running.end()) continue;
    const auto matches = phraseIndex_->match(text);
    std::vector<std::string> found;
    for (std::size_t i = 0; i < matches.size(); ++i) {
      if (matches[i].kind != PhraseMatchKind::Case::none) found.push_back(phrases_[i]);
    }
    if (found.empty()) continue;
    screen.applications.push_back(
        {application->bundleID, application->localizedName, std::move(found)});
  }
  screen_.texts.clear();
  tell(tick.screen, screenTold_, std::optional(std::move(screen)));
}

}  // namespace wakelatch::host
