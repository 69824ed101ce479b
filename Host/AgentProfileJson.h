// The JSON form of a profile of the catalogue.
#pragma once

#include <tuple>

#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Json.h"

namespace wakelatch {
template <>
inline constexpr auto jsonFields<AgentProfile> = std::tuple{
    required("id", &AgentProfile::id),
    required("displayName", &AgentProfile::displayName),
    required("kind", &AgentProfile::kind),
    required("bundleIDs", &AgentProfile::bundleIDs),
    optional("iconBundleID", &AgentProfile::iconBundleID),
    required("appBundleNames", &AgentProfile::appBundleNames),
    required("cliProcessNames", &AgentProfile::cliProcessNames),
    required("cliPathMarkers", &AgentProfile::cliPathMarkers),
    required("trustsCPUSignal", &AgentProfile::trustsCPUSignal),
    required("scanTerminalText", &AgentProfile::scanTerminalText),
    required("requireMultiWordPhrases", &AgentProfile::requireMultiWordPhrases),
    required("activePhrases", &AgentProfile::activePhrases),
    required("idlePhrases", &AgentProfile::idlePhrases),
    required("sessionActivityGlobs", &AgentProfile::sessionActivityGlobs),
    required("sessionGlobsSharedWithOtherApps", &AgentProfile::sessionGlobsSharedWithOtherApps),
    required("sessionCountGlobs", &AgentProfile::sessionCountGlobs),
};
}  // namespace wakelatch
