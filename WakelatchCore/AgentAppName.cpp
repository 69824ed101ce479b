#include "WakelatchCore/AgentAppName.h"

#include <algorithm>
#include <array>

#include "Platform/Text.h"

namespace wakelatch {
namespace {

/// Canonical names of browsers, whose load comes from web pages.
constexpr std::array<std::string_view, 5> browsers = {"Google Chrome", "Arc", "Safari", "Firefox",
                                                      "Browser"};

/// Whether `text` contains `needle` literally; false for an empty needle.
bool contains(std::string_view text, std::string_view needle) {
  return !needle.empty() && text.find(needle) != text.npos;
}

/// `text` without the occurrences of `needle`, in one pass: an occurrence that only a removal
/// brings about stays.
std::string without(std::string_view text, std::string_view needle) {
  std::string result;
  std::size_t start = 0;
  for (auto found = text.find(needle); found != text.npos; found = text.find(needle, start)) {
    result += text.substr(start, found - start);
    start = found + needle.size();
  }
  result += text.substr(start);
  return result;
}

std::string trimmedCopy(std::string_view text) {
  return std::string(platform::trimmed(text));
}

}  // namespace

std::string AgentAppName::normalized(std::string_view name) {
  return trimmedCopy(without(without(platform::lowercased(name), " desktop"), ".app"));
}

std::string AgentAppName::canonical(std::string_view name) {
  const std::string l = platform::lowercased(name);
  if (contains(l, "google chrome") || l == "chrome" || contains(l, "chrome helper")) {
    return "Google Chrome";
  }
  if (contains(l, "chatgpt")) return "ChatGPT";
  if (contains(l, "claude")) return "Claude";
  if (contains(l, "codex")) return "Codex";
  if (contains(l, "cursor")) return "Cursor";
  if (contains(l, "visual studio code") || l == "code" || contains(l, "code helper")) {
    return "Visual Studio Code";
  }
  if (contains(l, "windsurf")) return "Windsurf";
  if (contains(l, "arc")) return "Arc";
  if (contains(l, "safari")) return "Safari";
  if (contains(l, "firefox")) return "Firefox";
  if (contains(l, "iterm")) return "iTerm2";
  if (contains(l, "terminal")) return "Terminal";
  return trimmedCopy(without(without(name, " Helper (Renderer)"), " Helper"));
}

bool AgentAppName::matches(std::string_view name, std::string_view target) {
  return matchesNormalized(normalized(name), normalized(target));
}

bool AgentAppName::matchesNormalized(std::string_view name, std::string_view target) {
  return contains(name, target) || contains(target, name);
}

bool AgentAppName::isNoisy(std::string_view name) {
  const std::string l = platform::lowercased(name);
  if (contains(l, "authenticationservices")) return true;
  if (contains(l, "autofill")) return true;
  if (contains(l, "crashpad")) return true;
  if (contains(l, "gpu process")) return true;
  if (l == "autoupdate") return true;
  if (l == "updater") return true;
  if (contains(l, "sparkle")) return true;
  if (contains(l, "renderer")) {
    // The renderer of an agent's own application works for the agent.
    return !contains(l, "codex") && !contains(l, "claude") && !contains(l, "chatgpt");
  }
  return false;
}

bool AgentAppName::canUseCPUSignal(std::string_view name) {
  return std::find(browsers.begin(), browsers.end(), canonical(name)) == browsers.end();
}

bool AgentAppName::requiresMultiWordPhrases(std::string_view name) {
  return !canUseCPUSignal(name);
}

std::string AgentAppName::cleanedReason(std::string_view reason) {
  if (platform::containsIgnoringCase(reason, "CPU")) return "CPU activity";
  if (platform::containsIgnoringCase(reason, "Accessibility")) return "UI text signal";
  return trimmedCopy(without(without(reason, "Target app "), "is "));
}

}  // namespace wakelatch
