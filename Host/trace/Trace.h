// The form of a trace: what a watch's decisions depended on, tick by tick, as lines of JSON. The
// first line is the header; each line after it is one tick and holds what has changed since the one
// before. Paths are written with "~" for the user's home directory.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Host/AgentProfileJson.h"
#include "Host/Terminal.h"
#include "Host/WatchState.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Json.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// How the instants of a trace are written: every bit of them counts.
inline constexpr DateCoding traceDates = DateCoding::secondsSince1970;

struct TraceHeader {
  static constexpr std::int64_t currentFormat = 1;

  std::int64_t traceFormat = currentFormat;
  std::string program;         ///< name and version of what recorded it
  std::string system;          ///< "Linux 6.1.0 x86_64"
  std::int64_t startedAt = 0;  ///< milliseconds since 1970; the first tick counts from here
  double intervalSeconds = 2;
  AppMode mode = AppMode::watchAgentUI;
  std::optional<std::int64_t> pid;  ///< of the watch; absent when it was a dry run
  GuardSettings settings;
  std::vector<AgentProfile> catalogue;
  std::vector<std::string> leftOut;  ///< what the trace does not hold, in sentences
};

/// A process as `ps` told it. Its load stands in TraceTick::cpu, because it changes most.
struct TraceProcess {
  std::int64_t parent = 0;
  std::string command;
  std::optional<std::string> arguments;  ///< those that tell which agent it is

  friend bool operator==(const TraceProcess&, const TraceProcess&) = default;
};

/// An application whose windows were read.
struct TraceApplication {
  std::optional<std::string> bundleID;
  std::optional<std::string> name;   ///< as the user sees it
  std::vector<std::string> phrases;  ///< of those that are looked for, what its windows showed

  friend bool operator==(const TraceApplication&, const TraceApplication&) = default;
};

/// The user interface, on a system where it can be read.
struct TraceScreen {
  bool isTrusted = false;
  std::vector<TraceApplication> applications;

  friend bool operator==(const TraceScreen&, const TraceScreen&) = default;
};

/// Modification times of files by their place in a trace; 0: there is no such file any more.
using TraceTimes = std::map<std::string, Timestamp>;

/// What a turn record told. A session whose record is gone has these initial values.
struct TraceTurn {
  TurnState state = TurnState::idle;
  Timestamp at;  ///< when the record last changed
  std::optional<std::int64_t> pid;

  friend bool operator==(const TraceTurn&, const TraceTurn&) = default;
};

/// One tick. Absent fields are unchanged; before the first tick everything is empty.
struct TraceTick {
  std::int64_t ms = 0;  ///< since the tick before
  std::optional<GuardSettings> settings;
  std::optional<Held> held;            ///< what held the machine awake; absent in a dry run
  std::optional<std::string> battery;  ///< as `pmset -g batt` printed it
  std::optional<LidState> lid;
  std::optional<ThermalState> heat;
  std::optional<std::map<std::string, TraceProcess>> processes;  ///< new or changed, by pid
  std::optional<std::vector<std::int64_t>> gone;                 ///< pids
  std::optional<std::map<std::string, double>> cpu;              ///< percent of a core, by pid
  std::optional<std::vector<std::int64_t>> order;  ///< all pids as listed, when not ascending
  std::optional<TraceTimes> newest;  ///< of what a list of globs, joined by spaces, matches
  /// By such a list, session files: "s1", or "agent-1" for those of an agent's own helpers.
  std::optional<std::map<std::string, TraceTimes>> sessions;
  /// By such a list, sessions under made-up names.
  std::optional<std::map<std::string, std::map<std::string, TraceTurn>>> turns;
  std::optional<std::map<std::string, Timestamp>> started;  ///< processes that were asked about
  std::optional<std::vector<std::int64_t>> connected;       ///< of those that were asked about
  std::optional<TraceScreen> screen;
};

/// The key that a trace has for a list of globs.
inline std::string traceKey(const std::vector<std::string>& globs) {
  return joined(globs, " ");
}

/// The entries of `now` that are new or differ from `told`; an entry that is gone has the initial
/// value of its type, such as the time 0. `told` becomes `now`.
template <class Value>
std::map<std::string, Value> changes(std::map<std::string, Value>& told,
                                     std::map<std::string, Value> now) {
  std::map<std::string, Value> changed;
  for (const auto& [key, value] : now) {
    if (told[key] != value) changed[key] = value;
  }
  for (const auto& [key, value] : told) {
    if (!now.contains(key)) changed[key] = Value();
  }
  told = std::move(now);
  return changed;
}

/// Applies entries from changes() to `known`; where each is a map itself, applies its entries.
template <class Known, class Value>
void takeOver(Known& known, const std::map<std::string, Value>& changed) {
  for (const auto& [key, value] : changed) {
    if constexpr (requires(Value map) { map.begin(); }) {
      takeOver(known[key], value);
    } else if (value == Value()) {
      known.erase(key);
    } else {
      known[key] = value;
    }
  }
}

}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto json::fields<host::TraceHeader> = std::tuple{
    json::required("traceFormat", &host::TraceHeader::traceFormat),
    json::required("program", &host::TraceHeader::program),
    json::required("system", &host::TraceHeader::system),
    json::required("startedAt", &host::TraceHeader::startedAt),
    json::required("intervalSeconds", &host::TraceHeader::intervalSeconds),
    json::required("mode", &host::TraceHeader::mode),
    json::optional("pid", &host::TraceHeader::pid),
    json::required("settings", &host::TraceHeader::settings),
    json::required("catalogue", &host::TraceHeader::catalogue),
    json::required("leftOut", &host::TraceHeader::leftOut),
};
template <>
inline constexpr auto json::fields<host::TraceProcess> = std::tuple{
    json::required("parent", &host::TraceProcess::parent),
    json::required("command", &host::TraceProcess::command),
    json::optional("arguments", &host::TraceProcess::arguments),
};
template <>
inline constexpr auto json::fields<host::TraceApplication> = std::tuple{
    json::optional("bundleID", &host::TraceApplication::bundleID),
    json::optional("name", &host::TraceApplication::name),
    json::required("phrases", &host::TraceApplication::phrases),
};
template <>
inline constexpr auto json::fields<host::TraceScreen> = std::tuple{
    json::required("isTrusted", &host::TraceScreen::isTrusted),
    json::required("applications", &host::TraceScreen::applications),
};
template <>
inline constexpr auto json::fields<host::TraceTurn> = std::tuple{
    json::required("state", &host::TraceTurn::state),
    json::required("at", &host::TraceTurn::at),
    json::optional("pid", &host::TraceTurn::pid),
};
template <>
inline constexpr auto json::fields<host::TraceTick> = std::tuple{
    json::required("ms", &host::TraceTick::ms),
    json::optional("settings", &host::TraceTick::settings),
    json::optional("held", &host::TraceTick::held),
    json::optional("battery", &host::TraceTick::battery),
    json::optional("lid", &host::TraceTick::lid),
    json::optional("heat", &host::TraceTick::heat),
    json::optional("processes", &host::TraceTick::processes),
    json::optional("gone", &host::TraceTick::gone),
    json::optional("cpu", &host::TraceTick::cpu),
    json::optional("order", &host::TraceTick::order),
    json::optional("newest", &host::TraceTick::newest),
    json::optional("sessions", &host::TraceTick::sessions),
    json::optional("turns", &host::TraceTick::turns),
    json::optional("started", &host::TraceTick::started),
    json::optional("connected", &host::TraceTick::connected),
    json::optional("screen", &host::TraceTick::screen),
};
}  // namespace wakelatch
