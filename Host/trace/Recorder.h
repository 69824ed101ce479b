// Listens to what a watch asks of the machine, and writes down what its decisions depended on.
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
#include "Host/trace/Privacy.h"
#include "Host/trace/Trace.h"
#include "WakelatchCore/PhraseMatcher.h"
#include "WakelatchCore/ProcessDetector.h"

namespace wakelatch::host {

/// Hands out sources that answer as the machine does and remember the answers; tick() turns those
/// of the last look into a line. Used from the watch's deciding thread. Nothing of a person's work
/// goes into a trace: see Privacy. Of several processes listed with one id the first alone counts.
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

  /// To look with.
  const Sources& sources() const { return sources_; }

  /// The first line of a trace that begins now, without line end. Before the first tick().
  std::string header(const GuardSettings& settings, Timestamp now);
  /// The line of a tick, from what was seen since the one before.
  std::string tick(const Observation& seen, const GuardSettings& settings, const Held& held);

 private:
  /// Keeps what `ps` printed.
  class Tools : public CommandRunning {
   public:
    explicit Tools(CommandRunning& machine) : machine_(machine) {}
    CommandResult run(const ShellCommand& command) override;
    std::string usage, arguments;  ///< the listings of the last look; empty when they failed

   private:
    CommandRunning& machine_;
  };

  /// Keeps the answers about files.
  class Files : public FileActivityProbing {
   public:
    explicit Files(const FileActivityProbing& machine) : machine_(machine) {}
    std::optional<Timestamp> newestModification(
        const std::vector<std::string>& patterns) const override;
    std::vector<Timestamp> modificationDates(
        const std::vector<std::string>& patterns) const override;
    ModificationsByPath sessionModifications(
        const std::vector<std::string>& patterns) const override;
    // The detectors ask from the thread that records.
    mutable std::map<std::string, std::optional<Timestamp>> newest;  ///< by traceKey()
    mutable std::map<std::string, ModificationsByPath> sessions;

   private:
    const FileActivityProbing& machine_;
  };

  /// Keeps what was told of turns.
  class Turns : public TurnReading {
   public:
    explicit Turns(TurnReading& machine) : machine_(machine) {}
    std::vector<TurnRecord> records(const TurnRecordFormat& format, Timestamp since) override;
    std::optional<Timestamp> processStart(std::int32_t pid) override;
    bool isConnected(std::int32_t pid) override;
    std::map<std::string, std::vector<TurnRecord>> told;  ///< by traceKey()
    std::map<std::string, Timestamp> started;             ///< by pid
    std::vector<std::int64_t> connected;                  ///< in this tick

   private:
    TurnReading& machine_;
  };

  /// Keeps the texts of the applications that are read.
  class Screen : public platform::Accessibility {
   public:
    explicit Screen(Accessibility& machine) : machine_(machine) {}
    bool isSupported() const override { return machine_.isSupported(); }
    std::vector<platform::RunningApplication> runningApplications() override;
    bool isTrusted() override { return isTrustedNow = machine_.isTrusted(); }
    void requestPermissionPrompt() override { machine_.requestPermissionPrompt(); }
    Element application(std::int32_t processID) override;
    Value attribute(const Element& element, std::string_view name, const Limits& limits) override;

    bool isTrustedNow = false;
    std::vector<platform::RunningApplication> running;
    std::vector<std::pair<std::int32_t, std::string>> texts;  ///< by process, in order of reading

   private:
    Accessibility& machine_;
  };

  /// A process of the last listing.
  struct Row {
    ProcessSnapshot process;
    bool isAgent = false;
    bool isOfAgent = false, isAncestor = false;  ///< see markKin()
    std::optional<TraceProcess> told;            ///< as it stands in the trace; absent: has changed
    double toldCPU = 0;
    bool isTold = false;        ///< the trace knows it
    std::uint64_t seenIn = 0;   ///< the number of the tick
    std::uint64_t askedIn = 0;  ///< that in which isOfAgent was last found out
  };
  struct SessionFile {
    std::string name;  ///< in the trace
    Timestamp time;
  };

  void follow(const GuardSettings& settings);
  void tellProcesses(TraceTick& tick);
  void markKin(const std::vector<Row*>& rows);
  TraceProcess traceOf(const Row& row) const;
  void tellFiles(TraceTick& tick, Timestamp now);
  TraceTimes tellSessions(std::map<std::string, SessionFile>& told,
                          const ModificationsByPath& files, Timestamp now);
  void tellTurns(TraceTick& tick);
  void tellScreen(TraceTick& tick);

  const Options options_;
  const AgentProfiles profiles_;
  Tools tools_;
  Files files_;
  Turns turns_;
  Screen screen_;
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
  std::map<std::string, Timestamp> newest_;
  std::map<std::string, std::map<std::string, SessionFile>> sessions_;  ///< by path
  std::map<std::string, std::map<std::string, TraceTurn>> turnsTold_;
  std::map<std::string, std::string> turnNames_;  ///< by session
  std::map<std::string, Timestamp> startedTold_;
  std::vector<std::int64_t> connectedTold_;
  std::size_t sessionCount_ = 0;
  std::optional<TraceScreen> screenTold_;
};

}  // namespace wakelatch::host
