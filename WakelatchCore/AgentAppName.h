// When two names that applications and processes report denote the same application, and what a
// name alone says about it.
#pragma once

#include <string>
#include <string_view>

#pragma GCC visibility push(default)
/// Names of applications compared. Pure functions, callable from any thread; none of them fails.
namespace wakelatch::AgentAppName {

/// The name in the form in which names are compared: "Claude Desktop" becomes "claude".
std::string normalized(std::string_view name);

/// The display name of the family that the name belongs to ("Code Helper (Plugin)" becomes
/// "Visual Studio Code"); without a family, the name less its helper suffixes.
std::string canonical(std::string_view name);

/// Whether a seen name and a configured target denote the same application: one normalised form
/// contains the other. An empty target matches nothing.
bool matches(std::string_view name, std::string_view target);
/// What matches() answers, for two names that are normalised already.
bool matchesNormalized(std::string_view name, std::string_view target);

/// Whether the name is that of a helper or updater that never counts as agent work.
bool isNoisy(std::string_view name);

/// False for browsers, whose load says nothing about an agent.
bool canUseCPUSignal(std::string_view name);
/// True for browsers, whose pages hold any single word.
bool requiresMultiWordPhrases(std::string_view name);

/// A detector's reason shortened to a label.
std::string cleanedReason(std::string_view reason);

}  // namespace wakelatch::AgentAppName
#pragma GCC visibility pop
