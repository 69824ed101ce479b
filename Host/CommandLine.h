// The command line: what was asked for.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// The process's exit status.
enum class ExitStatus {
  done = 0,
  failed = 1,
  usage = 2,
  notRestored = 3,  ///< normal sleep could not be restored
};

struct StatusOptions {
  bool json = false;
  std::optional<AppMode> mode;  ///< absent: the running watch's, else watching agents
  std::string agent;            ///< the only one that is looked for; empty: all
};

/// Explains the tick that `status` shows.
struct ExplainOptions : StatusOptions {};

/// What a watch prints of its ticks.
enum class TickOutput { people, json, none };

struct WatchOptions {
  AppMode mode = AppMode::watchAgentUI;
  double intervalSeconds = 2;
  bool isIntervalGiven = false;  ///< by hand: it is kept to
  std::optional<int> ticks;      ///< absent: until a signal
  bool json = false;
  bool isQuiet = false;  ///< prints nothing of its ticks
  bool dryRun = false;
  double releaseDelaySeconds = 60;
  std::string caffeinatePath;  ///< empty: the system's
  std::string agent;           ///< as StatusOptions::agent
  std::string recordFile;      ///< empty: none
  bool recordsAllProcesses = false;

  TickOutput output() const {
    return isQuiet ? TickOutput::none : json ? TickOutput::json : TickOutput::people;
  }
};

struct ReplayOptions {
  std::vector<std::string> files;
  std::vector<std::string> truthFiles;  ///< one for each trace, or none
  std::string settingsFile;             ///< empty: the trace's own settings
  double cpuFactor = 1;
  std::string agent;      ///< as StatusOptions::agent
  std::string explainAt;  ///< a moment; empty: none
  std::string htmlFile;   ///< empty: none
  bool json = false;
};

struct AgentsOptions {
  bool json = false;
};

struct RestoreOptions {
  bool adopt = false;
};

struct DoctorOptions {
  bool json = false;
};

struct StatsOptions {
  int days = 14;
  bool json = false;
  std::string htmlFile;  ///< empty: none
};

using Command = std::variant<StatusOptions, ExplainOptions, WatchOptions, AgentsOptions,
                             RestoreOptions, DoctorOptions, StatsOptions, ReplayOptions>;

/// A parsed command line.
struct CommandLine {
  Command command;
  std::filesystem::path toolDirectory;  ///< empty: the system's own tools
};

/// Parses the arguments. When they ask for help or are wrong, prints the answer and returns the
/// status to exit with.
std::variant<CommandLine, ExitStatus> parseCommandLine(int argc, const char* const* argv);

}  // namespace wakelatch::host
