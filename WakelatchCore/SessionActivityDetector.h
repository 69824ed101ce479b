// Detects which agents have written session files lately, and counts their sessions.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Clock.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/FileActivityProbe.h"
#include "WakelatchCore/Models.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// An agent that has written to a session file lately.
struct SessionActivity {
  ActivitySignal signal;  ///< strong
  Timestamp newest;       ///< the latest modification time of its session files
};

/// Judges agents by the modification times of their session files. Keeps nothing between calls;
/// callable from any thread. Blocks as long as the probe does. Never fails: unreadable files count
/// as missing.
class SessionActivityDetector {
 public:
  static constexpr double defaultFreshnessWindow = 60;  ///< for detectPerApp(), in seconds
  static constexpr double defaultSessionCountWindow =
      300;  ///< for sessionCountsPerApp(), in seconds

  /// @param probe  used, not owned
  explicit SessionActivityDetector(const FileActivityProbing& probe, AgentProfiles profiles = {})
      : probe_(probe), profiles_(std::move(profiles)) {}
  SessionActivityDetector(const SessionActivityDetector&) = delete;
  SessionActivityDetector& operator=(const SessionActivityDetector&) = delete;

  /// A strong signal for each watched agent whose newest session file is at most `freshnessWindow`
  /// seconds old, in the order of the profiles.
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings, Timestamp now,
                                           double freshnessWindow) const;

  /// The signals of detectPerApp() with the times behind them.
  std::vector<SessionActivity> inspect(const GuardSettings& settings, Timestamp now,
                                       double freshnessWindow) const;

  /// For each watched agent, by display name, the number of session files written in the last
  /// `window` seconds. Omits agents without AgentProfile::sessionCountGlobs. Files of the agents'
  /// own helpers (named "agent-…" or below a directory "subagents") do not count.
  std::map<std::string, std::int64_t> sessionCountsPerApp(const GuardSettings& settings,
                                                          Timestamp now, double window) const;

  /// The signal of an agent whose newest session file was changed at `newestModification`; absent
  /// if that is more than `freshnessWindow` seconds ago. A time in the future is fresh.
  static std::optional<ActivitySignal> signal(const std::string& appName,
                                              std::optional<Timestamp> newestModification,
                                              Timestamp now, double freshnessWindow);

 private:
  const FileActivityProbing& probe_;
  const AgentProfiles profiles_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
