// The JSON form of a profile of the catalogue. Fields that an object lacks keep the value that they
// have in the profile it is decoded into.
#pragma once

#include <tuple>

#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/Json.h"

namespace wakelatch {
template <>
inline constexpr auto json::fields<TurnRecordFormat::Rule> = std::tuple{
    json::optional("state", &TurnRecordFormat::Rule::state),
    json::optional("when", &TurnRecordFormat::Rule::when),
};
template <>
inline constexpr auto json::fields<TurnRecordFormat> = std::tuple{
    json::optional("globs", &TurnRecordFormat::globs),
    json::optional("form", &TurnRecordFormat::form),
    json::optional("rules", &TurnRecordFormat::rules),
    json::optional("isNamedByDirectory", &TurnRecordFormat::isNamedByDirectory),
    json::optional("processIDField", &TurnRecordFormat::processIDField),
    json::optional("timeField", &TurnRecordFormat::timeField),
    json::optional("query", &TurnRecordFormat::query),
};
template <>
inline constexpr auto json::fields<AgentProfile> = std::tuple{
    json::required("id", &AgentProfile::id),
    json::optional("displayName", &AgentProfile::displayName),
    json::optional("kind", &AgentProfile::kind),
    json::optional("bundleIDs", &AgentProfile::bundleIDs),
    json::optional("iconBundleID", &AgentProfile::iconBundleID),
    json::optional("appBundleNames", &AgentProfile::appBundleNames),
    json::optional("cliProcessNames", &AgentProfile::cliProcessNames),
    json::optional("cliPathMarkers", &AgentProfile::cliPathMarkers),
    json::optional("trustsCPUSignal", &AgentProfile::trustsCPUSignal),
    json::optional("scanTerminalText", &AgentProfile::scanTerminalText),
    json::optional("requireMultiWordPhrases", &AgentProfile::requireMultiWordPhrases),
    json::optional("activePhrases", &AgentProfile::activePhrases),
    json::optional("idlePhrases", &AgentProfile::idlePhrases),
    json::optional("sessionActivityGlobs", &AgentProfile::sessionActivityGlobs),
    json::optional("sessionGlobsSharedWithOtherApps",
                   &AgentProfile::sessionGlobsSharedWithOtherApps),
    json::optional("sessionCountGlobs", &AgentProfile::sessionCountGlobs),
    json::optional("recognisesProgramsOnly", &AgentProfile::recognisesProgramsOnly),
    json::optional("oneShotArguments", &AgentProfile::oneShotArguments),
    json::optional("serverArguments", &AgentProfile::serverArguments),
    json::optional("helperArguments", &AgentProfile::helperArguments),
    json::optional("workerArguments", &AgentProfile::workerArguments),
    json::optional("turnRecords", &AgentProfile::turnRecords),
    json::optional("toolMarkers", &AgentProfile::toolMarkers),
    json::optional("isConnectedOnlyInTurns", &AgentProfile::isConnectedOnlyInTurns),
};
}  // namespace wakelatch
