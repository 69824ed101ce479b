// Records what a watch reads from the machine.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Host/Observer.h"
#include "Host/Sources.h"
#include "Host/WatchState.h"
#include "Host/trace/Listeners.h"
#include "Host/trace/Privacy.h"
#include "Host/trace/Trace.h"
#include "WakelatchCore/PhraseMatcher.h"
#include "WakelatchCore/ProcessDetector.h"

namespace wakelatch::host {

/// Gives the detectors sources that pass on the machine's answers and keep them; tick() makes a
/// line of a trace from the answers of the last look. Used from the watch's deciding thread only.
/// The content of a user's work does not go into a trace: see Privacy. If several processes are
/// listed with one id, only the first one counts.
class Recorder {
 public:
  struct Options {
    double intervalSeconds = 2;
    AppMode mode = AppMode::watchAgentUI;
    std::optional<std::int64_t> pid;  ///< process id of the watch; absent for a dry run
    AgentProfiles profiles = {};      ///< the agents that are watched
    bool keepsAllProcesses = false;   ///< whether to record all processes with all arguments
  };

  /// @param machine  the sources to be recorded; used, not owned
  Recorder(const Sources& machine, Options options);
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// The sources for the detectors.
  const Sources& sources() const { return sources_; }

  /// The first line of a trace that begins now, without line end. To be called before the first
  /// tick().
  std::string header(const GuardSettings& settings, Timestamp now);
  /// The line for a tick, without line end: what has changed since the previous line. Throws
  /// std::domain_error if a number cannot be written as JSON.
  std::string tick(const Observation& seen, const GuardSettings& settings, const Held& held);

 private:
  /// A process of the last listing.
  struct Row {
    ProcessSnapshot process;
    bool isAgent = false;
    bool isOfAgent = false, isAncestor = false;  ///< see markKin()
    bool isTold = false;                         ///< whether it is in the trace
    bool isCurrent = false;                      ///< whether its entry in the trace is up to date
    double toldCPU = 0;                          ///< its load in the trace
    std::uint64_t seenIn = 0;                    ///< number of the last tick that listed it
    std::uint64_t askedIn = 0;  ///< number of the last tick that determined isOfAgent
  };

  void follow(const GuardSettings& settings);
  void tellProcesses(TraceTick& tick);
  void markKin(const std::vector<Row*>& rows);
  TraceProcess traceOf(const Row& row) const;
  void tellFiles(TraceTick& tick, Timestamp now);
  void tellTurns(TraceTick& tick);
  void tellScreen(TraceTick& tick);

  const Options options_;
  const AgentProfiles profiles_;
  ToolListener tools_;
  FileListener files_;
  TurnListener turns_;
  ScreenListener screen_;
  const Sources sources_;

  std::int64_t lastMs_ = 0;  ///< time of the last line, in milliseconds since 1970
  std::uint64_t ticks_ = 0;
  // From here on: the values last written to the trace, and what is derived from them.
  std::optional<GuardSettings> settings_;
  std::optional<Privacy> privacy_;  ///< for these settings
  std::optional<PhraseIndex> phraseIndex_;
  std::vector<std::string> phrases_;
  Held held_;
  std::optional<std::string> battery_;
  LidState lid_ = LidState::unknown;
  ThermalState heat_ = ThermalState::nominal;
  std::unordered_map<std::int32_t, Row> rows_;
  std::vector<std::int64_t> order_;
  TraceTimes newest_, started_;
  std::map<std::string, TraceTimes> sessions_;
  std::map<std::string, std::map<std::string, TraceTurn>> turnsTold_;
  /// The names that stand for them in the trace, by path and by session.
  std::map<std::string, std::string> fileNames_, turnNames_;
  std::vector<std::int64_t> connected_;
  std::optional<TraceScreen> screenTold_;
};

}  // namespace wakelatch::host
