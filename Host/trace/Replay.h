// Runs the detectors and the decision engine on a trace in place of the machine.
#pragma once

#include <exception>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Host/Observer.h"
#include "Host/OneTick.h"
#include "Host/Pace.h"
#include "Host/Sources.h"
#include "Host/trace/RecordedSources.h"
#include "Host/trace/Trace.h"
#include "WakelatchCore/AgentStateMachine.h"

namespace wakelatch::host {

/// Answers the detectors' questions as the recorded machine did. For one thread.
class RecordedMachine {
 public:
  RecordedMachine();
  RecordedMachine(const RecordedMachine&) = delete;
  RecordedMachine& operator=(const RecordedMachine&) = delete;

  const Sources& sources() const { return sources_; }

  /// @param cpuFactor  by which every process's load is multiplied
  void apply(const TraceTick& tick, double cpuFactor);

 private:
  struct Process {
    TraceProcess row;
    double cpu = 0;
  };
  void print();

  RecordedTools tools_;
  RecordedFiles files_;
  RecordedTurns turns_;
  RecordedScreen screen_;
  ThermalState heat_ = ThermalState::nominal;
  Sources sources_;
  std::map<std::int32_t, Process> processes_;
  std::vector<std::int64_t> order_;
};

/// A trace, decided anew tick by tick. For one thread; runs no tool and reads no file but the
/// trace.
class Replay {
 public:
  struct Options {
    std::optional<GuardSettings> settings = {};  ///< absent: the trace's own
    double cpuFactor = 1;
    std::string agent = {};  ///< see onlyAgent()
    AgentProfiles profiles = {};
    /// Leaves out ticks that a watch would have left out in quiet times; see Pace.
    bool isPaced = false;
  };

  /// Reads the header. Throws std::runtime_error naming file, line and reason.
  Replay(std::filesystem::path file, Options options);

  const TraceHeader& header() const { return header_; }

  /// The next tick; nothing at the end of the trace. An incomplete last line is left out: the
  /// recording was cut short. Throws std::runtime_error naming file, line and reason.
  std::optional<OneTick> next();
  /// Whether a last line was left out.
  bool isCutShort() const { return isCutShort_; }

 private:
  std::optional<std::string> readLine();
  void follow(const TraceTick& tick);
  template <class Line>
  Line decoded(const std::string& text) const;
  [[noreturn]] void fail(const std::exception& error) const;

  const std::filesystem::path file_;
  const Options options_;
  std::ifstream input_;
  std::size_t lineNumber_ = 0;
  bool isCutShort_ = false;
  TraceHeader header_;
  GuardSettings settings_;
  std::int64_t ms_ = 0;  ///< since 1970
  Held held_;
  RecordedMachine machine_;
  Observer observer_;
  AgentStateMachine stateMachine_;
  Pace pace_;
  double sinceDecided_ = 0;  ///< seconds
  double pause_ = 0;         ///< until the next paced tick
};

}  // namespace wakelatch::host
