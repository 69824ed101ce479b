#include "WakelatchCore/SessionActivityDetector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace wakelatch {
namespace {

/// "12" for 12.7, "0" for times in the future.
std::string wholeSeconds(double age) {
  char text[400];  // the largest double has 309 digits
  std::snprintf(text, sizeof text, "%.0f", std::max(0.0, std::trunc(age)));
  return text;
}

bool isSession(std::string_view path) {
  const std::string_view name = path.substr(path.rfind('/') + 1);
  return name.substr(0, 6) != "agent-" && path.find("/subagents/") == std::string_view::npos;
}

}  // namespace

std::optional<ActivitySignal> SessionActivityDetector::signal(
    const std::string& appName, std::optional<Timestamp> newestModification, Timestamp now,
    double freshnessWindow) {
  if (!newestModification) return std::nullopt;
  const double age = secondsBetween(*newestModification, now);
  if (age > freshnessWindow || std::isnan(age)) return std::nullopt;
  return ActivitySignal{.strength = SignalStrength::strong,
                        .appName = appName,
                        .reason = appName + " session active (" + wholeSeconds(age) + "s ago)"};
}

std::vector<SessionActivity> SessionActivityDetector::inspect(const GuardSettings& settings,
                                                              Timestamp now,
                                                              double freshnessWindow) const {
  std::vector<SessionActivity> active;
  const AgentResolver resolver = profiles_.watched(settings);
  for (const AgentProfile& profile : resolver.profiles()) {
    if (profile.sessionActivityGlobs.empty()) continue;
    const auto newest = probe_.newestModification(profile.sessionActivityGlobs);
    auto found = signal(profile.displayName, newest, now, freshnessWindow);
    if (found) active.push_back({std::move(*found), *newest});
  }
  return active;
}

std::vector<ActivitySignal> SessionActivityDetector::detectPerApp(const GuardSettings& settings,
                                                                  Timestamp now,
                                                                  double freshnessWindow) const {
  std::vector<ActivitySignal> signals;
  for (SessionActivity& active : inspect(settings, now, freshnessWindow)) {
    signals.push_back(std::move(active.signal));
  }
  return signals;
}

std::map<std::string, std::int64_t> SessionActivityDetector::sessionCountsPerApp(
    const GuardSettings& settings, Timestamp now, double window) const {
  std::map<std::string, std::int64_t> counts;
  // Slightly more than the window, so that rounding excludes no file; checked exactly below.
  const Timestamp since = after(now, -window - (1 + std::abs(window) * 1e-9));
  const AgentResolver resolver = profiles_.watched(settings);
  for (const AgentProfile& profile : resolver.profiles()) {
    if (profile.sessionCountGlobs.empty()) continue;
    const auto files = probe_.recentModifications(profile.sessionCountGlobs, since);
    counts[profile.displayName] = std::count_if(files.begin(), files.end(), [&](const auto& file) {
      const auto& [path, time] = file;
      return isSession(path) && !(secondsBetween(time, now) > window);
    });
  }
  return counts;
}

}  // namespace wakelatch
