// How good the decisions about a trace are, measured by what the agents really did.
//
// A sample stands for the time until the next one, but for at most 10 s; the last one for as long
// as the one before it. The time between is unobserved, during a sleep for example: it adds to no
// figure and ends no interval, but the grace period, which goes by the clock, passes. Durations are
// seconds.
//
// Pure functions, callable from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "Host/trace/Truth.h"
#include "Platform/Clock.h"
#include "WakelatchCore/Json.h"

namespace wakelatch::host {

/// The longest time that a sample stands for, in seconds.
inline constexpr double longestSampleSeconds = 10;
/// So many seconds of each interval of work may pass undetected before it counts as not held.
inline constexpr double detectionAllowance = 10;

/// What the strongest active signal of a decision rests on.
enum class EvidenceKind { none, process, uiText, sessionFile, turnRecord, oneShot };

/// One decision, as far as it is scored.
struct Sample {
  Timestamp at;
  bool isHeld = false;        ///< the decision prevents sleep
  bool isSleepAsked = false;  ///< the decision asks for sleep because work is complete
  std::string agent;          ///< display name in the decision; empty: none
  EvidenceKind evidence = EvidenceKind::none;
  bool hasProcess = false;  ///< any agent's process exists
  bool hasLoad = false;     ///< any agent's CPU is at or above its threshold, whatever it is worth
  double graceSeconds = 0;  ///< of the power profile in force
};

/// How long a sample stands for, in seconds.
double secondsOf(const std::vector<Sample>& samples, std::size_t index);

/// What is counted for one agent, or for the machine: there an interval of work lasts as long as
/// any agent works. Intervals that touch are one.
struct Figures {
  /// Truth says working.
  double workSeconds = 0;
  ///@{
  /// Work during which the machine was not held awake, without the first `detectionAllowance` of
  /// each interval of work; and the longest stretch of that.
  double notHeldSeconds = 0;
  double longestNotHeldSeconds = 0;
  ///@}
  /// How often sleep began to be asked for by a sample taken while working.
  std::int64_t sleepsAskedInWork = 0;
  ///@{
  /// How long the machine was still held after work had ended and the grace period had passed,
  /// without a break since the work. Also by the raw value of the EvidenceKind that is to blame:
  /// that of the last sample with active evidence.
  double beyondGraceSeconds = 0;
  std::map<std::string, double> beyondGraceByEvidence;
  ///@}
  /// Held while no agent works, other than without a break since the end of work.
  double idleHeldSeconds = 0;
  /// From the start of each interval of work (as far as it was looked at) to the first moment in it
  /// that is held; its whole length when none is.
  std::vector<double> detectionSeconds;
  /// Held while working, by a decision that names an agent which is not working.
  double otherNameSeconds = 0;

  ///@{
  /// Of detectionSeconds; 0 when there are none.
  double medianDetection() const;
  double worstDetection() const;
  ///@}
  /// Adds another trace's: durations and counts add up, of the longest the longer stays, the
  /// delays of both are listed.
  Figures& operator+=(const Figures& other);
};

/// The figures of one trace, or of several together.
struct Score {
  /// Of the machine, whichever agent works.
  Figures all;
  /// By display name: the agents of the truth, and others that decisions to hold were made for. An
  /// agent's work seconds are its own even when others work too. A hold that no agent's work
  /// explains counts for the agent that its last sample with active evidence names; without such a
  /// sample for the one that the decision names, and for "" when it names none.
  std::map<std::string, Figures> agents;
  ///@{
  /// For comparison, the machine's figures if it were kept awake by simple rules: while any agent's
  /// process exists, and while the CPU of one is at or above its threshold.
  Figures whileProcess;
  Figures whileLoad;
  ///@}

  /// Adds another trace's score.
  Score& operator+=(const Score& other);
};

/// Scores one trace.
/// @param samples       in the order in which they were taken
/// @param intervals     as loadTruth() returns them; what lies outside the samples is not scored
/// @param displayNames  by AgentProfile::id; an id that is not there is its own display name
Score score(const std::vector<Sample>& samples, const std::vector<TruthInterval>& intervals,
            const std::map<std::string, std::string>& displayNames);

/// Rounded to the tenth of a second to which figures are shown and compared.
double tenths(double seconds);

/// A figure as it is shown and compared.
struct Measure {
  std::string_view key;          ///< in files
  std::string_view title;        ///< for people
  double (*of)(const Figures&);  ///< its value
  bool isCount = false;          ///< otherwise it is in seconds
};
/// All of them, in the order in which they are shown.
inline constexpr std::array<Measure, 9> measures{{
    {"workSeconds", "Work", [](const Figures& f) { return f.workSeconds; }},
    {"notHeldSeconds", "Not held", [](const Figures& f) { return f.notHeldSeconds; }},
    {"longestNotHeldSeconds", "Longest", [](const Figures& f) { return f.longestNotHeldSeconds; }},
    {.key = "sleepsAskedInWork",
     .title = "Sleeps",
     .of = [](const Figures& f) { return static_cast<double>(f.sleepsAskedInWork); },
     .isCount = true},
    {"medianDetectionSeconds", "Seen after", [](const Figures& f) { return f.medianDetection(); }},
    {"worstDetectionSeconds", "At worst", [](const Figures& f) { return f.worstDetection(); }},
    {"beyondGraceSeconds", "Beyond grace", [](const Figures& f) { return f.beyondGraceSeconds; }},
    {"idleHeldSeconds", "Idle held", [](const Figures& f) { return f.idleHeldSeconds; }},
    {"otherNameSeconds", "Misnamed", [](const Figures& f) { return f.otherNameSeconds; }},
}};

}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto enumCases<host::EvidenceKind> = std::to_array<EnumCase<host::EvidenceKind>>({
    {host::EvidenceKind::none, "none", "nothing"},
    {host::EvidenceKind::process, "process", "process"},
    {host::EvidenceKind::uiText, "uiText", "UI text"},
    {host::EvidenceKind::sessionFile, "sessionFile", "session files"},
    {host::EvidenceKind::turnRecord, "turnRecord", "turn records"},
    {host::EvidenceKind::oneShot, "oneShot", "one-shot runs"},
});
template <>
inline constexpr auto json::fields<host::Figures> = std::tuple{
    json::required("workSeconds", &host::Figures::workSeconds),
    json::required("notHeldSeconds", &host::Figures::notHeldSeconds),
    json::required("longestNotHeldSeconds", &host::Figures::longestNotHeldSeconds),
    json::required("sleepsAskedInWork", &host::Figures::sleepsAskedInWork),
    json::required("beyondGraceSeconds", &host::Figures::beyondGraceSeconds),
    json::required("beyondGraceByEvidence", &host::Figures::beyondGraceByEvidence),
    json::required("idleHeldSeconds", &host::Figures::idleHeldSeconds),
    json::required("detectionSeconds", &host::Figures::detectionSeconds),
    json::required("otherNameSeconds", &host::Figures::otherNameSeconds),
};
template <>
inline constexpr auto json::fields<host::Score> = std::tuple{
    json::required("all", &host::Score::all),
    json::required("agents", &host::Score::agents),
    json::required("whileProcess", &host::Score::whileProcess),
    json::required("whileLoad", &host::Score::whileLoad),
};
}  // namespace wakelatch
