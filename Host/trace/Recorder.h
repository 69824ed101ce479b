// Records what a watch asks of the machine and what it answered.
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

/// Gives the detectors sources that answer as the machine does and keep each answer; tick() makes a
/// line from those of the last look. Used from the watch's deciding thread. Nothing of a person's
/// work goes into a trace: see Privacy. Of several processes listed with one id the first alone
/// counts.
class Recorder {
 public:
  struct Options {
    double intervalSeconds = 2;
    AppMode mode = AppMode::watchAgentUI;
    std::optional<std::int64_t> pid;  ///< of the watch; absent for a dry run
    AgentProfiles profiles = {};      ///< that are looked for
    bool keepsAllProcesses = false;   ///< with all their arguments
  };

  /// @param machine  what is asked; owned by the caller
  Recorder(const Sources& machine, Options options);
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  /// What the detectors are to ask.
  const Sources& sources() const { return sources_; }

  /// The first line of a trace that begins now, without line end. Before the first tick().
  std::string header(const GuardSettings& settings, Timestamp now);
  /// The line of a tick, from what was seen since the one before.
  std::string tick(const Observation& seen, const GuardSettings& settings, const Held& held);

 private:
  /// A process of the last listing.
  struct Row {
    ProcessSnapshot process;
    bool isAgent = false;
    bool isOfAgent = false, isAncestor = false;  ///< see markKin()
    bool isTold = false;                         ///< it is in the trace
    bool isCurrent = false;                      ///< what the trace says of it is up to date
    double toldCPU = 0;
    std::uint64_t seenIn = 0;   ///< the number of the tick
    std::uint64_t askedIn = 0;  ///< that in which isOfAgent was last found out
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

  std::int64_t lastMs_ = 0;  ///< of the last line, since 1970
  std::uint64_t ticks_ = 0;
  std::optional<GuardSettings> settings_;  ///< as told last; so are the others
  std::optional<Privacy> privacy_;         ///< for these
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
  std::map<std::string, std::string> fileNames_, turnNames_;  ///< in the trace, by path or session
  std::vector<std::int64_t> connected_;
  std::optional<TraceScreen> screenTold_;
};

}  // namespace wakelatch::host
