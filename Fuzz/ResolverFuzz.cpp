// The agents behind command lines and bundles, against plain definitions. The input is a path and,
// in the next line, arguments.
#include <algorithm>
#include <array>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "Platform/Text.h"
#include "WakelatchCore/AgentCatalog.h"

using namespace wakelatch;
using fuzz::require;

namespace {

using Names = std::vector<std::string>;
using Report = std::pair<std::string, std::string>;

constexpr std::array<std::string_view, 10> interpreters = {
    "node", "node_repl", "python", "python3", "ruby", "deno", "bun", "npx", "uv", "uvx"};

Names pieces(std::string_view text, char separator) {
  Names found;
  while (!text.empty()) {
    const auto [piece, rest] = fuzz::cut(text, separator);
    if (!piece.empty()) found.emplace_back(piece);
    text = rest;
  }
  return found;
}

std::string plainBasename(std::string_view path) {
  const Names components = pieces(path, '/');
  return components.empty() ? std::string(path) : components.back();
}

std::optional<std::string> plainBundle(std::string_view path) {
  for (const std::string& component : pieces(path, '/')) {
    if (component.ends_with(".app")) return component.substr(0, component.size() - 4);
  }
  return std::nullopt;
}

/// The first profile with a name for which `fits` holds, given the name in lower case.
template <class Fits>
const AgentProfile* firstWith(const AgentResolver& resolver, Names AgentProfile::*names,
                              Fits fits) {
  for (const AgentProfile& profile : resolver.profiles()) {
    for (const std::string& name : profile.*names) {
      if (fits(platform::lowercased(name))) return &profile;
    }
  }
  return nullptr;
}

const AgentProfile* named(const AgentResolver& resolver, Names AgentProfile::*names,
                          std::string_view name) {
  return firstWith(resolver, names, [lower = platform::lowercased(name)](const std::string& known) {
    return known == lower;
  });
}

/// The agent by the definition; null if there is none. Sets `report` if that is to be reported.
const AgentProfile* plainProfile(const AgentResolver& resolver, std::string_view path,
                                 std::string_view arguments, std::optional<Report>& report) {
  const std::string line = platform::lowercased(std::string(path).append(" ").append(arguments));
  const auto* marked = firstWith(resolver, &AgentProfile::cliPathMarkers, [&](const auto& marker) {
    return !marker.empty() && line.find(marker) != line.npos;
  });
  if (marked) return marked;

  const std::string executable = plainBasename(path);
  Names programs;
  for (const std::string& token : pieces(arguments, ' ')) programs.push_back(plainBasename(token));
  constexpr auto processNames = &AgentProfile::cliProcessNames;
  const std::optional<std::string> bundle = plainBundle(path);
  if (!bundle) {
    if (executable.empty()) return nullptr;
    if (const auto* profile = named(resolver, processNames, executable)) return profile;
    const auto isInterpreter = [lower = platform::lowercased(executable)](std::string_view name) {
      return name == lower;
    };
    if (std::none_of(interpreters.begin(), interpreters.end(), isInterpreter)) return nullptr;
    for (const std::string& program : programs) {
      if (const auto* profile = named(resolver, processNames, program)) return profile;
    }
    return nullptr;
  }
  if (const auto* owner = named(resolver, &AgentProfile::appBundleNames, *bundle)) return owner;
  programs.insert(programs.begin(), executable);
  for (const std::string& program : programs) {
    if (!named(resolver, processNames, program)) continue;
    static std::set<std::string> reported;
    if (reported.insert(platform::lowercased(*bundle)).second) report = Report(*bundle, program);
    break;
  }
  return nullptr;
}

GuardSettings everyAgent() {
  GuardSettings settings;
  settings.enableBrowsers = true;
  return settings;
}

void check(const AgentResolver& resolver, std::string_view path, std::string_view arguments) {
  static std::optional<Report> reported;
  AgentResolver::onUnmatchedHostBundle = [](const std::string& bundle, const std::string& binary) {
    reported = Report(bundle, binary);
  };
  reported.reset();
  std::optional<Report> expected;
  const AgentProfile* profile = plainProfile(resolver, path, arguments, expected);
  require(resolver.profileForCommand(path, arguments) == profile, "commands resolve as defined");
  require(reported == expected, "an unknown host bundle is reported once");
  require(resolver.profileForBundleID(path) == named(resolver, &AgentProfile::bundleIDs, path),
          "bundle identifiers resolve as defined");
}

}  // namespace

FUZZ(text) {
  static const AgentResolver catalog = AgentResolver::make(everyAgent());
  static const AgentResolver odd(
      {{.id = "first",
        .bundleIDs = {"\u0130d"},
        .appBundleNames = {"B\u00F6x", "Tool"},
        .cliProcessNames = {"\u00C4gent", "To ol", "/"},
        .cliPathMarkers = {"", "B C", "/\u00E9/"}},
       {.id = "second", .cliProcessNames = {"tool", "\xFFx"}, .cliPathMarkers = {"/aa/"}}});
  const auto [path, arguments] = fuzz::cut(text, '\n');
  check(catalog, path, arguments);
  check(odd, path, arguments);
  check(catalog, interpreters[text.size() % interpreters.size()], arguments);
  require(AgentResolver::basename(path) == plainBasename(path), "the last component is as defined");
  require(AgentResolver::appBundleName(path) == plainBundle(path), "the bundle is as defined");
}
