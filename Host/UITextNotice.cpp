#include "Host/UITextNotice.h"

#include "Host/Terminal.h"

namespace wakelatch::host {
namespace {

/// Whom it concerns that UI text cannot be read: the end of a sentence.
std::string whoIsMissed(const std::vector<AgentProfile>& watched) {
  std::vector<std::string> names;
  for (const AgentProfile& agent : watched) {
    if (!AccessibilityNotice::isUITextOnly(agent) || agent.activePhrases.empty()) continue;
    names.push_back(agent.displayName);
  }
  return names.empty() ? "" : "; it alone would show: " + joined(names);
}

}  // namespace

std::optional<std::string> uiTextNotice(const AccessibilityDetector& detector,
                                        const GuardSettings& settings,
                                        const AgentProfiles& profiles) {
  if (!settings.accessibilityDetectionEnabled || detector.isTrusted()) return std::nullopt;
  const auto watched = profiles.watched(settings).profiles();
  return detector.isSupported() ? AccessibilityNotice::onboardingNote(watched)
                                : "is not read on this system" + whoIsMissed(watched);
}

std::string accessibilityNote(const AccessibilityDetector& detector, const GuardSettings& settings,
                              const AgentProfiles& profiles) {
  const auto watched = profiles.watched(settings).profiles();
  return detector.isSupported()
             ? AccessibilityNotice::onboardingNote(watched)
             : "there is none on this system, so UI text is not read" + whoIsMissed(watched);
}

}  // namespace wakelatch::host
