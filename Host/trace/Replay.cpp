#include "Host/trace/Replay.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <utility>

#include "Host/SettingsFile.h"
#include "Platform/Numbers.h"

namespace wakelatch::host {
namespace {

/// Some 30,000 years from 1970.
constexpr std::int64_t farthestMs = 1'000'000'000'000'000;

/// A named pipe would block.
std::ifstream opened(const std::filesystem::path& file) {
  std::ifstream input;
  if (std::filesystem::is_regular_file(file)) input.open(file);
  if (!input.is_open()) throw std::runtime_error(file.string() + ": is no file that can be read");
  return input;
}

}  // namespace

// --------------------------------------------------------------------------- the machine's part

RecordedMachine::RecordedMachine()
    : sources_{[] {}, tools_, screen_, files_, turns_, [this] { return heat_; }} {}

void RecordedMachine::apply(const TraceTick& tick, double cpuFactor) {
  if (tick.battery) tools_.battery = *tick.battery;
  if (tick.lid) {
    tools_.lid = *tick.lid == LidState::closed ? "\"AppleClamshellState\" = Yes"
                 : *tick.lid == LidState::open ? "\"AppleClamshellState\" = No"
                                               : "";
  }
  heat_ = tick.heat.value_or(heat_);
  if (tick.screen) screen_.screen = tick.screen;
  if (tick.newest) takeOver(files_.newest, *tick.newest);
  if (tick.sessions) takeOver(files_.sessions, *tick.sessions);
  if (tick.turns) takeOver(turns_.told, *tick.turns);
  if (tick.connected) turns_.connected = *tick.connected;

  if (tick.gone) {
    for (const std::int64_t pid : *tick.gone) processes_.erase(static_cast<std::int32_t>(pid));
  }
  const auto pidOf = [](const std::string& text) {
    const auto pid = platform::parseInt32(text);
    if (!pid) throw std::runtime_error("processes: \"" + text + "\" is no process number");
    return *pid;
  };
  if (tick.processes) {
    for (const auto& [pid, row] : *tick.processes) {
      if ((row.command + row.arguments.value_or("")).find('\n') != std::string::npos) {
        throw std::runtime_error("processes: a line end in process " + pid);
      }
      processes_[pidOf(pid)].row = row;
    }
  }
  if (tick.started) {
    for (const auto& [pid, time] : *tick.started) turns_.started[pidOf(pid)] = time;
  }
  if (tick.cpu) {
    for (const auto& [pid, cpu] : *tick.cpu) processes_[pidOf(pid)].cpu = cpu * cpuFactor;
  }
  if (tick.order) order_ = *tick.order;
  if (tick.processes || tick.gone || tick.cpu || tick.order) print();
}

void RecordedMachine::print() {
  tools_.usage.clear();
  tools_.arguments.clear();
  const auto add = [this](std::int32_t pid, const Process& process) {
    const std::string id = std::to_string(pid) + ' ';
    char cpu[400];  // every bit of it, and no exponent, which `ps` never prints
    char* const end =
        std::to_chars(std::begin(cpu), std::end(cpu), process.cpu, std::chars_format::fixed).ptr;
    tools_.usage += id + std::to_string(process.row.parent) + ' ' + std::string(cpu, end) + ' ' +
                    process.row.command + '\n';
    if (process.row.arguments) tools_.arguments += id + *process.row.arguments + '\n';
  };
  if (order_.empty()) {
    for (const auto& [pid, process] : processes_) add(pid, process);
    return;
  }
  for (const std::int64_t pid : order_) {
    const auto found = processes_.find(static_cast<std::int32_t>(pid));
    if (found != processes_.end()) add(found->first, found->second);
  }
}

// ----------------------------------------------------------------------------------- the trace

Replay::Replay(std::filesystem::path file, Options options)
    : file_(std::move(file)),
      options_(std::move(options)),
      input_(opened(file_)),
      observer_(machine_.sources(), options_.profiles, std::numeric_limits<double>::infinity()) {
  const auto line = readLine();
  if (!line) throw std::runtime_error(file_.string() + ": is empty");
  header_ = decoded<TraceHeader>(*line);
  if (header_.traceFormat != TraceHeader::currentFormat) {
    throw std::runtime_error(file_.string() + ": traceFormat " +
                             std::to_string(header_.traceFormat) +
                             " is not known here: replay it with the program that recorded it");
  }
  settings_ =
      onlyAgent(options_.settings.value_or(header_.settings), options_.agent, options_.profiles);
  ms_ = std::clamp(header_.startedAt, -farthestMs, farthestMs);
}

std::optional<OneTick> Replay::next() {
  do {
    const auto line = readLine();
    if (!line) return std::nullopt;
    const auto tick = decoded<TraceTick>(*line);
    follow(tick);
    sinceDecided_ += static_cast<double>(tick.ms) / 1000;
  } while (options_.isPaced && sinceDecided_ < pause_);
  OneTick decided = decide(stateMachine_, header_.mode, settings_, held_.isHeld(),
                           observer_.look(settings_, platform::fromMilliseconds(ms_)));
  decided.isWatchRunning = true;
  if (header_.pid) {
    decided.watch =
        stateAfter(decided, stateMachine_.memory(), held_, *header_.pid, header_.intervalSeconds);
  }
  pace_.follow(decided, held_);
  const double late = header_.intervalSeconds / 2;  // the tick that is nearest counts
  pause_ = pace_.isQuiet() ? Pace::quietSeconds - late : 0;
  sinceDecided_ = 0;
  return decided;
}

/// Makes the machine what it was then.
void Replay::follow(const TraceTick& tick) {
  if (tick.settings && !options_.settings) {
    settings_ = onlyAgent(*tick.settings, options_.agent, options_.profiles);
  }
  if (tick.held) held_ = *tick.held;
  if (tick.ms < -farthestMs || tick.ms > farthestMs) {
    fail(std::runtime_error("ms: no time between two ticks"));
  }
  ms_ = std::clamp(ms_ + tick.ms, -farthestMs, farthestMs);
  try {
    machine_.apply(tick, options_.cpuFactor);
  } catch (const std::exception& error) {
    fail(error);
  }
}

std::optional<std::string> Replay::readLine() {
  std::string line;
  if (!std::getline(input_, line)) return std::nullopt;
  ++lineNumber_;
  if (input_.eof()) {  // every complete line has a line break
    isCutShort_ = true;
    return std::nullopt;
  }
  return line;
}

template <class Line>
Line Replay::decoded(const std::string& text) const {
  try {
    return decode<Line>(text, traceDates);
  } catch (const DecodingError& error) {
    fail(error);
  }
}

void Replay::fail(const std::exception& error) const {
  throw std::runtime_error(file_.string() + ", line " + std::to_string(lineNumber_) + ": " +
                           error.what());
}

}  // namespace wakelatch::host
