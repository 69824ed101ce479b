// Compares the names that applications and processes report, and classifies applications by name.
#pragma once

#include <string>
#include <string_view>

#pragma GCC visibility push(default)
/// Rules for names of applications. Pure functions, callable from any thread; none of them fails.
namespace wakelatch::AgentAppName {

/// The name normalised for comparison: "Claude Desktop" becomes "claude".
std::string normalized(std::string_view name);

/// The display name of the family that the name belongs to ("Code Helper (Plugin)" becomes
/// "Visual Studio Code"); if it belongs to none, the name without helper suffixes.
std::string canonical(std::string_view name);

/// Whether a seen name and a configured target denote the same application: one normalised form
/// contains the other. An empty target matches nothing.
bool matches(std::string_view name, std::string_view target);
/// matches() for two names that are already normalised.
bool matchesNormalized(std::string_view name, std::string_view target);

/// Whether the name is that of a helper or updater, which never counts as agent work.
bool isNoisy(std::string_view name);

/// Whether CPU load may count as work: false for browsers, whose load has many other causes.
bool canUseCPUSignal(std::string_view name);
/// Whether only phrases of several words count: true for browsers, as any single word may occur in
/// a web page.
bool requiresMultiWordPhrases(std::string_view name);

/// A detector's reason shortened to a label.
std::string cleanedReason(std::string_view reason);

}  // namespace wakelatch::AgentAppName
#pragma GCC visibility pop
