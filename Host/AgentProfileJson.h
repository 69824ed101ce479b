// The JSON form of a profile of the catalogue. What an object leaves out stays as it is in the
// profile that it is read over.
#pragma once

#include <tuple>

#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Json.h"

namespace wakelatch {
template <>
inline constexpr auto jsonFields<TurnRecordFormat::Rule> = std::tuple{
    defaulted("state", &TurnRecordFormat::Rule::state),
    defaulted("when", &TurnRecordFormat::Rule::when),
};
template <>
inline constexpr auto jsonFields<TurnRecordFormat> = std::tuple{
    defaulted("globs", &TurnRecordFormat::globs),
    defaulted("form", &TurnRecordFormat::form),
    defaulted("rules", &TurnRecordFormat::rules),
    defaulted("isNamedByDirectory", &TurnRecordFormat::isNamedByDirectory),
    optional("processIDField", &TurnRecordFormat::processIDField),
    optional("timeField", &TurnRecordFormat::timeField),
    optional("query", &TurnRecordFormat::query),
};
template <>
inline constexpr auto jsonFields<AgentProfile> = std::tuple{
    required("id", &AgentProfile::id),
    defaulted("displayName", &AgentProfile::displayName),
    defaulted("kind", &AgentProfile::kind),
    defaulted("bundleIDs", &AgentProfile::bundleIDs),
    optional("iconBundleID", &AgentProfile::iconBundleID),
    defaulted("appBundleNames", &AgentProfile::appBundleNames),
    defaulted("cliProcessNames", &AgentProfile::cliProcessNames),
    defaulted("cliPathMarkers", &AgentProfile::cliPathMarkers),
    defaulted("trustsCPUSignal", &AgentProfile::trustsCPUSignal),
    defaulted("scanTerminalText", &AgentProfile::scanTerminalText),
    defaulted("requireMultiWordPhrases", &AgentProfile::requireMultiWordPhrases),
    defaulted("activePhrases", &AgentProfile::activePhrases),
    defaulted("idlePhrases", &AgentProfile::idlePhrases),
    defaulted("sessionActivityGlobs", &AgentProfile::sessionActivityGlobs),
    defaulted("sessionGlobsSharedWithOtherApps", &AgentProfile::sessionGlobsSharedWithOtherApps),
    defaulted("sessionCountGlobs", &AgentProfile::sessionCountGlobs),
    defaulted("recognisesProgramsOnly", &AgentProfile::recognisesProgramsOnly),
    defaulted("oneShotArguments", &AgentProfile::oneShotArguments),
    defaulted("serverArguments", &AgentProfile::serverArguments),
    defaulted("helperArguments", &AgentProfile::helperArguments),
    defaulted("workerArguments", &AgentProfile::workerArguments),
    defaulted("turnRecords", &AgentProfile::turnRecords),
    defaulted("toolMarkers", &AgentProfile::toolMarkers),
    defaulted("isConnectedOnlyInTurns", &AgentProfile::isConnectedOnlyInTurns),
};
}  // namespace wakelatch
