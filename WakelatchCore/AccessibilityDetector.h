// Detects agent work by the text that applications show in their windows.
#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/Accessibility.h"
#include "Platform/Mutex.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Models.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Limits on what reading windows may cost. When a limit is reached, reading stops, and the text
/// read so far is used. By default there is no limit: an application that hangs costs the system's
/// time-out for each attribute read.
struct ReadingBudget {
  /// No limit.
  static constexpr double unlimited = std::numeric_limits<double>::infinity();

  double answerSeconds = unlimited;  ///< for one answer; a later one ends reading its application
  double applicationSeconds = unlimited;  ///< for one application
  double totalSeconds = unlimited;        ///< for all applications of a detectPerApp()
  /// How many attributes without a value are read per application; they cost as much as others.
  std::size_t absentValues = std::numeric_limits<std::size_t>::max();

  /// A budget for a tick in which reading may take this many seconds.
  static constexpr ReadingBudget within(double seconds) {
    return {seconds / 4, seconds / 2, seconds, 5000};
  }
};

/// Searches the windows of running applications for agents' phrases: the agents' own applications,
/// terminals, and those that the user named. Keeps nothing that it saw. Never throws, never logs;
/// what cannot be read contributes nothing. Blocks: each read waits for the application's answer.
/// macOS updates its list of running applications only while the main thread's run loop runs.
class AccessibilityDetector {
 public:
  /// Reads the system's accessibility interface.
  AccessibilityDetector() : AccessibilityDetector(platform::systemAccessibility()) {}
  /// @param accessibility  used, not owned; it says on which threads this may be called
  explicit AccessibilityDetector(platform::Accessibility& accessibility, ReadingBudget budget = {},
                                 AgentProfiles profiles = {})
      : accessibility_(accessibility), budget_(budget), profiles_(std::move(profiles)) {}
  AccessibilityDetector(const AccessibilityDetector&) = delete;
  AccessibilityDetector& operator=(const AccessibilityDetector&) = delete;

  /// Whether this system lets user interfaces be read at all.
  bool isSupported() const { return accessibility_.isSupported(); }
  /// Whether this process has the user's permission to read them.
  bool isTrusted() const { return accessibility_.isTrusted(); }
  /// Makes the system ask the user for the permission.
  void requestPermissionPrompt() { accessibility_.requestPermissionPrompt(); }

  /// At most one signal for each `appName`, in no particular order: strong for an active phrase,
  /// presence for an idle one. Empty if the settings switch it off or the permission is missing.
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings);
  /// The strongest signal of detectPerApp(), or ActivitySignal::none().
  ActivitySignal detect(const GuardSettings& settings);

  /// The text in an application's focused window, or in its first windows if none is focused, its
  /// fragments joined by single spaces. Depth and number of elements are limited: a window may hold
  /// any number, and each read is a message to the application.
  std::string visibleText(std::int32_t processID);
  /// The titles of an application's windows, in window order, empty titles included.
  std::vector<std::string> windowTitles(std::int32_t processID);

 private:
  struct Phrases;
  std::shared_ptr<const Phrases> phrasesFor(const std::vector<AgentProfile>& profiles,
                                            const GuardSettings& settings);
  std::string visibleText(std::int32_t processID, double secondsLeft);

  platform::Accessibility& accessibility_;
  const ReadingBudget budget_;
  const AgentProfiles profiles_;
  platform::Mutex mutex_;
  /// Prepared for the latest settings.
  std::shared_ptr<const Phrases> phrases_ WAKELATCH_GUARDED_BY(mutex_);
};

}  // namespace wakelatch
#pragma GCC visibility pop
