// Detects agent work by the text that applications show in their windows.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Accessibility.h"
#include "Platform/Mutex.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Models.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Looks for the phrases of agents in the windows of running applications: of the agents' own, of
/// terminals, and of those that the user named. Remembers nothing that it saw. Never throws, never
/// logs; what cannot be read contributes nothing. Every read waits for the application's answer.
/// macOS renews its list of running applications only while the main thread's run loop runs.
class AccessibilityDetector {
 public:
  /// Reads the system's accessibility interface.
  AccessibilityDetector() : AccessibilityDetector(platform::systemAccessibility()) {}
  /// @param accessibility  used, not owned; it says on which threads this may be called
  explicit AccessibilityDetector(platform::Accessibility& accessibility)
      : accessibility_(accessibility) {}
  AccessibilityDetector(const AccessibilityDetector&) = delete;
  AccessibilityDetector& operator=(const AccessibilityDetector&) = delete;

  /// Whether this system lets user interfaces be read at all.
  bool isSupported() const { return accessibility_.isSupported(); }
  /// Whether this process has the user's permission to read them.
  bool isTrusted() const { return accessibility_.isTrusted(); }
  /// Has the system ask the user for the permission.
  void requestPermissionPrompt() { accessibility_.requestPermissionPrompt(); }

  /// At most one signal for each `appName`, in no particular order: strong for an active phrase,
  /// presence for an idle one. Nothing when switched off or not trusted.
  std::vector<ActivitySignal> detectPerApp(const GuardSettings& settings);
  /// The strongest of detectPerApp(), or ActivitySignal::none().
  ActivitySignal detect(const GuardSettings& settings);

  /// The text in an application's focused window, else in its first windows, fragments joined by
  /// single spaces. Bounded: windows have no end of elements, and each read is a message.
  std::string visibleText(std::int32_t processID);
  /// The titles of an application's windows, in window order, empty titles included.
  std::vector<std::string> windowTitles(std::int32_t processID);

 private:
  struct Phrases;
  std::shared_ptr<const Phrases> phrasesFor(const std::vector<AgentProfile>& profiles,
                                            const GuardSettings& settings);

  platform::Accessibility& accessibility_;
  platform::Mutex mutex_;
  /// Made ready for the latest settings.
  std::shared_ptr<const Phrases> phrases_ WAKELATCH_GUARDED_BY(mutex_);
};

}  // namespace wakelatch
#pragma GCC visibility pop
