// What agents really did while a trace was recorded, and when: the measure of its decisions.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/Enum.h"

namespace wakelatch::host {

enum class Doing {
  working,
  waiting,  ///< for the user
  idle,
};

/// What one agent did from `from` until just before `to`. At instants that no interval of an agent
/// holds, the agent was not there.
struct TruthInterval {
  Timestamp from, to;
  std::string agent;  ///< AgentProfile::id
  Doing doing = Doing::idle;
};

/// Reads a truth file: a JSON object a line, in any order of time,
/// {"from":"2026-11-23T13:20:00.123Z","to":"2026-11-23T13:21:00Z","agent":"claude-code",
/// "state":"working"}. An empty file is a trace without any agent.
/// @return sorted by start, and by agent where several start together
/// @throws std::runtime_error naming the file and, but where it cannot be read, the line and what
///         is wrong with it: no such object, an end before its start, an interval that overlaps
///         another one of its agent
std::vector<TruthInterval> loadTruth(const std::filesystem::path& file);

}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto enumCases<host::Doing> = std::to_array<EnumCase<host::Doing>>({
    {host::Doing::working, "working", "working"},
    {host::Doing::waiting, "waiting", "waiting for the user"},
    {host::Doing::idle, "idle", "idle"},
});
}  // namespace wakelatch
