// The rules for names, against their tables. The input is a name and, in the next line, a target.
#include <string>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "Platform/Text.h"
#include "WakelatchCore/AgentAppName.h"

using namespace wakelatch;
using fuzz::require;

namespace {

bool contains(std::string_view text, std::string_view part) {
  return !part.empty() && text.find(part) != text.npos;
}

std::string without(std::string_view part, std::string_view text) {
  std::string kept;
  while (!text.empty()) {
    if (text.starts_with(part)) {
      text.remove_prefix(part.size());
    } else {
      kept += text.front();
      text.remove_prefix(1);
    }
  }
  return kept;
}

std::string trimmed(const std::string& text) {
  return std::string(platform::trimmed(text));
}

std::string plainNormalized(std::string_view name) {
  return trimmed(without(".app", without(" desktop", platform::lowercased(name))));
}

struct Rule {
  const char *family, *part, *whole = nullptr;
};
constexpr Rule families[] = {
    {"Google Chrome", "google chrome", "chrome"},
    {"Google Chrome", "chrome helper"},
    {"ChatGPT", "chatgpt"},
    {"Claude", "claude"},
    {"Codex", "codex"},
    {"Cursor", "cursor"},
    {"Visual Studio Code", "visual studio code", "code"},
    {"Visual Studio Code", "code helper"},
    {"Windsurf", "windsurf"},
    {"Arc", "arc"},
    {"Safari", "safari"},
    {"Firefox", "firefox"},
    {"iTerm2", "iterm"},
    {"Terminal", "terminal"},
};

std::string plainCanonical(std::string_view name) {
  const std::string lower = platform::lowercased(name);
  for (const Rule& rule : families) {
    if (contains(lower, rule.part) || (rule.whole && lower == rule.whole)) return rule.family;
  }
  return trimmed(without(" Helper", without(" Helper (Renderer)", name)));
}

bool plainIsNoisy(std::string_view name) {
  const std::string lower = platform::lowercased(name);
  for (const char* part :
       {"authenticationservices", "autofill", "crashpad", "gpu process", "sparkle"}) {
    if (contains(lower, part)) return true;
  }
  if (lower == "autoupdate" || lower == "updater") return true;
  const bool isAgent =
      contains(lower, "codex") || contains(lower, "claude") || contains(lower, "chatgpt");
  return contains(lower, "renderer") && !isAgent;
}

bool isBrowser(const std::string& family) {
  return family == "Google Chrome" || family == "Arc" || family == "Safari" ||
         family == "Firefox" || family == "Browser";
}

std::string plainReason(std::string_view reason) {
  std::string lower = platform::lowercased(reason);
  if (contains(lower, "cpu")) return "CPU activity";
  if (contains(lower, "accessibility")) return "UI text signal";
  return trimmed(without("is ", without("Target app ", reason)));
}

}  // namespace

FUZZ(text) {
  const auto [name, target] = fuzz::cut(text, '\n');
  const std::string a = plainNormalized(name), b = plainNormalized(target);
  require(AgentAppName::normalized(name) == a, "names are normalised as defined");
  const bool matches = AgentAppName::matches(name, target);
  require(matches == (!b.empty() && (contains(a, b) || contains(b, a))), "names match as defined");
  require(matches == AgentAppName::matches(target, name), "matching is symmetric");
  require(AgentAppName::matches(name, name) == !a.empty(), "a name matches itself");

  const std::string family = plainCanonical(name);
  require(AgentAppName::canonical(name) == family, "families are as defined");
  require(AgentAppName::canUseCPUSignal(name) == !isBrowser(family), "browsers' load is no sign");
  require(AgentAppName::requiresMultiWordPhrases(name) == isBrowser(family), "so are their words");
  require(AgentAppName::isNoisy(name) == plainIsNoisy(name), "noise is as defined");
  if (platform::isAllAscii(name))  // other letters have other case rules
    require(AgentAppName::cleanedReason(name) == plainReason(name), "reasons are as defined");
}
