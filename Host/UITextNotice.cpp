#include "Host/UITextNotice.h"

#include "WakelatchCore/AgentCatalog.h"

namespace wakelatch::host {

std::optional<std::string> uiTextNotice(const AccessibilityDetector& detector,
                                        const GuardSettings& settings) {
  if (!settings.accessibilityDetectionEnabled || detector.isTrusted()) return std::nullopt;
  const auto watched = AgentResolver::make(settings).profiles();
  if (detector.isSupported()) return AccessibilityNotice::onboardingNote(watched);
  std::string names;
  for (const std::string& name : AccessibilityNotice::uiTextOnlyNames(watched)) {
    names += (names.empty() ? "" : ", ") + name;
  }
  return names.empty() ? "is not read on this system"
                       : "is not read on this system; it alone would show: " + names;
}

}  // namespace wakelatch::host
