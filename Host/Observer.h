// One look at the machine: everything that a decision needs to know.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Host/Sources.h"
#include "Platform/Clock.h"
#include "WakelatchCore/AccessibilityDetector.h"
#include "WakelatchCore/ActivityDetector.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/PowerMonitor.h"
#include "WakelatchCore/ProcessDetector.h"
#include "WakelatchCore/SessionActivityDetector.h"
#include "WakelatchCore/TurnDetector.h"

namespace wakelatch::host {

/// What a look knows of an agent of the catalogue beside its signals.
struct KnownAgent {
  std::string id;                                   ///< AgentProfile::id
  std::optional<Timestamp> newestSessionFile = {};  ///< when that changed last, if it has any
};

struct Observation {
  Timestamp at;
  PowerSnapshot power;
  LidState lidState = LidState::unknown;
  ThermalState thermalState = ThermalState::nominal;
  ActivityDetector::Evidence evidence;
  ActivitySignal strongest;
  /// The watched agents by display name, without the user's own targets.
  std::map<std::string, KnownAgent> agents = {};
  std::optional<std::string> uiTextNotice;  ///< why UI text is not among the evidence
};

/// Owns the detectors. Used from the main thread; a look blocks as long as tools and file walks
/// take.
class Observer {
 public:
  /// @param sources  owned by the caller
  /// @param textSeconds  what reading UI text may take in a look: half the time between two
  Observer(const Sources& sources, AgentProfiles profiles, double textSeconds = 1);

  /// From now on looks for these agents. What was remembered of the others is forgotten.
  void lookFor(AgentProfiles profiles);

  Observation look(const GuardSettings& settings, Timestamp now);

  /// While there is nothing to lose, power and lid are not asked for in each look: whatever they
  /// are, nothing follows from it. They are asked for in the first look after that.
  void setQuiet(bool isQuiet) { isQuiet_ = isQuiet; }
  /// How old their answers may be then, in seconds.
  static constexpr double quietPowerSeconds = 30;

 private:
  /// Made anew whenever other agents are looked for.
  struct Detectors {
    ProcessDetector processes;
    AccessibilityDetector accessibility;
    SessionActivityDetector sessions;
    TurnDetector turns;
    ActivityDetector activity;

    Detectors(const Sources& sources, const AgentProfiles& profiles, double textSeconds);
  };

  const Sources sources_;
  const double textSeconds_;
  AgentProfiles profiles_;
  PowerMonitor power_;
  LidStateDetector lid_;
  std::unique_ptr<Detectors> detectors_;
  bool isQuiet_ = false;
  std::optional<Timestamp> powerAskedAt_;
  PowerSnapshot lastPower_;
  LidState lastLid_ = LidState::unknown;
};

}  // namespace wakelatch::host
