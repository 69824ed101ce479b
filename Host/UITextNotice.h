// Why the texts of other programs' windows are not read, and which agents that concerns.
#pragma once

#include <optional>
#include <string>

#include "WakelatchCore/AccessibilityDetector.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// A sentence for the user; nothing when UI text is read, or switched off by the settings.
/// @param profiles  the agents that are known
std::optional<std::string> uiTextNotice(const AccessibilityDetector& detector,
                                        const GuardSettings& settings,
                                        const AgentProfiles& profiles = {});

/// What the accessibility permission is good for, or that this system has none: a text for the
/// user, whatever the settings and the permission are.
/// @param profiles  the agents that are known
std::string accessibilityNote(const AccessibilityDetector& detector, const GuardSettings& settings,
                              const AgentProfiles& profiles = {});

}  // namespace wakelatch::host
