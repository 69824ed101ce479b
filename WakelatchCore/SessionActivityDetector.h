// Which agents have been writing their session files lately, and how many sessions they have.
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
  Timestamp newest;       ///< when the newest of its files was changed
};

/// Judges agents by the modification times of their session files. Keeps nothing between calls;
/// callable from any thread. Blocks as long as the probe does. Never fails: files that cannot be
/// read are not there.
class SessionActivityDetector {
 public:
  static constexpr double defaultFreshnessWindow = 60;      ///< seconds
  static constexpr double defaultSessionCountWindow = 300;  ///< seconds

  /// @param probe  belongs to the caller and must outlive the detector
  explicit SessionActivityDetector(const FileActivityProbing& probe, AgentProfiles profiles = {})
      : probe_(probe), profiles_(std::move(profiles)) {}
  SessionActivityDetector(const SessionActivityDetector&) = delete;
  SessionActivityDetector& operator=(const SessionActivityDetector&) = delete;

  /// A strong signal for each watched agent whose newest session file is at most `freshnessWindow`
  /// seconds old, in the order of the profiles.
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings, Timestamp now,
                                           double freshnessWindow) const;

  /// The signals of detectPerApp() with what led to them.
  std::vector<SessionActivity> inspect(const GuardSettings& settings, Timestamp now,
                                       double freshnessWindow) const;

  /// By display name, how many sessions of each watched agent were written to in the last `window`
  /// seconds. Agents whose sessions cannot be counted are absent. Files of the agents' own helpers
  /// (named "agent-…" or below a directory "subagents") are no sessions.
  std::map<std::string, std::int64_t> sessionCountsPerApp(const GuardSettings& settings,
                                                          Timestamp now, double window) const;

  /// The freshness rule: the signal of an agent whose newest session file was changed then; nothing
  /// when that is more than `freshnessWindow` seconds ago. A time in the future is fresh.
  static std::optional<ActivitySignal> signal(const std::string& appName,
                                              std::optional<Timestamp> newestModification,
                                              Timestamp now, double freshnessWindow);

 private:
  const FileActivityProbing& probe_;
  const AgentProfiles profiles_;
};

}  // namespace wakelatch
#pragma GCC visibility pop
