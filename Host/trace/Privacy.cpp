#include "Host/trace/Privacy.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "Platform/Split.h"
#include "Platform/Text.h"
#include "WakelatchCore/AgentAppName.h"
#include "WakelatchCore/AgentCommandLine.h"

namespace wakelatch::host {
namespace {

constexpr std::string_view omission = "…";

bool isOneOf(std::string_view word, const auto& list) {
  return std::find(std::begin(list), std::end(list), word) != std::end(list);
}

/// A word that may tell how an agent runs: once, or for another program.
bool isCommonWord(std::string_view word) {
  constexpr std::string_view words[] = {
      "exec",   "e",    "run", "resume", "app-server", "exec-server",    "server",      "serve",
      "daemon", "mcp",  "acp", "rpc",    "lsp",        "stdio",          "stream-json", "headless",
      "json",   "text", "web", "agent",  "print",      "pid-update-loop"};
  return isOneOf(word, words);
}

/// A directory that installers make and not people.
bool isPublicDirectory(std::string_view name) {
  constexpr std::string_view names[] = {"",    "~",   "node_modules", "site-packages", "bin",
                                        "lib", "opt", "share",        "versions",      "dist"};
  return isOneOf(name, names) || name.starts_with('.') || name.starts_with('@') ||
         name.ends_with(".app");
}

bool isSystemPath(std::string_view path) {
  constexpr std::string_view roots[] = {"/usr/",    "/bin/",          "/sbin/", "/opt/",
                                        "/System/", "/Applications/", "/lib",   "/Library/"};
  return std::any_of(std::begin(roots), std::end(roots),
                     [path](std::string_view root) { return path.starts_with(root); });
}

bool isOfName(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_' || c == '.' ||
         static_cast<signed char>(c) < 0;
}

/// "--print" of "--print=x", "-p" of "-pX", where values may be private; nothing for other words.
std::string_view optionName(std::string_view word) {
  constexpr std::size_t longest = 32;  // more is a part of a prompt
  if (!word.starts_with('-')) return {};
  if (!word.starts_with("--")) return word.substr(0, 2);
  const std::string_view name = word.substr(0, word.find('='));
  const bool isName = std::all_of(name.begin(), name.end(), [](char c) {
    return c == '-' || std::isalnum(static_cast<unsigned char>(c)) != 0;
  });
  return isName && name.size() <= longest ? name : std::string_view();
}

}  // namespace

Privacy::Privacy(const AgentResolver& agents, std::vector<std::string> targets, std::string home)
    : agents_(agents), targets_(std::move(targets)), home_(std::move(home)) {
  for (const AgentProfile& profile : agents_.profiles()) {
    for (const std::string& name : profile.cliProcessNames) {
      names_.insert(platform::lowercased(name));
    }
    for (const std::string& marker : profile.cliPathMarkers) {
      markers_.push_back(platform::lowercased(marker));
    }
    for (const auto* arguments : {&profile.oneShotArguments, &profile.serverArguments,
                                  &profile.helperArguments, &profile.workerArguments}) {
      for (const std::string& argument : *arguments) {
        for (const std::string_view word : platform::Split(argument, ' ')) words_.emplace(word);
      }
    }
    toolMarkers_.insert(toolMarkers_.end(), profile.toolMarkers.begin(), profile.toolMarkers.end());
  }
}

bool Privacy::isAgent(const ProcessSnapshot& process) const {
  return agents_.profileForCommand(process.command, process.arguments) != nullptr ||
         targetOf(process).has_value();
}

std::string Privacy::withoutHome(std::string_view text) const {
  std::string result;
  while (home_.size() > 1) {
    const std::size_t at = text.find(home_);
    if (at == text.npos) break;
    const std::string_view rest = text.substr(at + home_.size());
    const bool isDirectory = rest.empty() || !isOfName(rest.front());
    result += text.substr(0, at);
    result += isDirectory ? "~" : home_;
    text = rest;
  }
  return result.append(text);
}

void Privacy::reduceAgent(ProcessSnapshot& process) const {
  for (const Detail detail : {Detail::least, Detail::withWordsThatTell, Detail::withDirectories}) {
    ProcessSnapshot candidate = reduced(process, detail);
    if (!isRecognisedAlike(candidate, process)) continue;
    process = std::move(candidate);
    return;
  }
  process =
      reduced(process, Detail::least);  // better recognised as another agent than with a prompt
}

ProcessSnapshot Privacy::reduced(const ProcessSnapshot& process, Detail detail) const {
  ProcessSnapshot result = process;
  if (detail != Detail::withDirectories) result.command = withoutDirectories(process.command);
  result.arguments = reducedArguments(process, detail);
  return result;
}

std::string Privacy::reducedArguments(const ProcessSnapshot& process, Detail detail) const {
  const std::string_view program = platform::baseName(process.command, '/');
  bool isProgramDue = AgentResolver::isInterpreter(program);
  bool isFirst = true;
  int omitted = 0;                // in a row
  std::string_view optionBefore;  // this word may be its value
  std::string result;
  for (const std::string_view word : platform::Split(process.arguments, ' ')) {
    const std::string_view option = optionName(word);
    std::string kept;
    if (isFirst) {
      const std::string_view name = platform::baseName(word, '/');
      if (name == program || AgentResolver::isInterpreter(name) || isNamedAsAgent(name)) {
        kept = withoutDirectories(word);
      }
    } else if (!option.empty()) {
      // Of "--format=json" the value too. "-pX" is another option than "-p".
      const bool isTold =
          word.find('=') == option.size() && isMeaningful(word.substr(option.size() + 1));
      kept = isTold ? word : option;
      if (!isTold && option.size() == 2 && word.size() > 2) kept += omission;
    } else if (isProgramDue && optionBefore.empty()) {
      kept = withoutDirectories(word);
      isProgramDue = false;
    } else if (isMeaningful(word) && (optionBefore.empty() || optionBefore.starts_with("--"))) {
      kept = word;  // "-p run" begins a prompt, "--output-format json" does not
    }
    if (detail != Detail::least) {
      if (kept.empty() && isMeaningful(word)) kept = word;
      const auto marker = markerIn(word);
      if (detail == Detail::withDirectories && (marker || isNamedAsAgent(word))) {
        kept = word;
      } else if (marker) {
        kept = std::string(omission).append(*marker).append(omission);
      } else if (isNamedAsAgent(word)) {
        kept = withoutDirectories(word);
      }
    }
    optionBefore = option == word ? option : std::string_view();
    if (kept.empty()) kept = omission;
    // So many that the reader of a command line stops where it would have stopped before.
    omitted = kept == omission ? omitted + 1 : 0;
    if (omitted <= 3) {
      result.append(isFirst ? "" : " ").append(kept);
    }
    isFirst = false;
  }
  return result;
}

void Privacy::reduceOther(ProcessSnapshot& process) const {
  // The name alone might be an agent's, where the path says that it is none.
  for (const std::string& command :
       {process.displayName(), withoutDirectories(process.command), process.command}) {
    const auto tool = std::find_if(
        toolMarkers_.begin(), toolMarkers_.end(),
        [&](const std::string& marker) { return process.arguments.find(marker) != marker.npos; });
    const ProcessSnapshot candidate{process.pid, process.parentPID, process.cpuPercent, command,
                                    tool == toolMarkers_.end() ? "" : command + " " + *tool};
    if (!isRecognisedAlike(candidate, process)) continue;
    process = candidate;
    return;
  }
  process.command = process.displayName();
  process.arguments.clear();
}

std::string Privacy::withoutDirectories(std::string_view word) const {
  std::string path = withoutHome(word);
  if (isSystemPath(path)) return path;
  std::string result;
  bool isOmitted = false;
  for (std::size_t at = 0;;) {
    const std::size_t end = path.find('/', at);
    if (end == path.npos) return result + path.substr(at);
    const std::string piece = path.substr(at, end - at);
    at = end + 1;
    const bool isKept =
        isPublicDirectory(piece) || isNamedAsAgent(piece) || markerIn("/" + piece + "/");
    if (isKept || !isOmitted) result.append(isKept ? piece : omission).append("/");
    isOmitted = !isKept;
  }
}

bool Privacy::isMeaningful(std::string_view word) const {
  return isCommonWord(word) || words_.contains(word);
}

bool Privacy::isNamedAsAgent(std::string_view word) const {
  return names_.contains(platform::lowercased(platform::baseName(word, '/')));
}

/// As it stands in the word.
std::optional<std::string_view> Privacy::markerIn(std::string_view word) const {
  if (!platform::isAllAscii(word)) return std::nullopt;  // the least detailed form keeps the word
  const std::string lower = platform::lowercased(word);
  for (const std::string& marker : markers_) {
    const std::size_t at = lower.find(marker);
    if (at != lower.npos) return word.substr(at, marker.size());
  }
  return std::nullopt;
}

std::optional<std::size_t> Privacy::targetOf(const ProcessSnapshot& process) const {
  const auto found = std::find_if(targets_.begin(), targets_.end(), [&](const std::string& target) {
    return AgentAppName::matches(process.displayName(), target) ||
           AgentAppName::matches(process.command, target);
  });
  if (found == targets_.end()) return std::nullopt;
  return static_cast<std::size_t>(found - targets_.begin());
}

bool Privacy::isRecognisedAlike(const ProcessSnapshot& a, const ProcessSnapshot& b) const {
  const auto* profile = agents_.profileForCommand(a.command, a.arguments);
  if (profile != agents_.profileForCommand(b.command, b.arguments)) return false;
  if (profile == nullptr) return targetOf(a) == targetOf(b);
  const AgentCommandLine one(a.command, a.arguments), other(b.command, b.arguments);
  return one.runOf(*profile) == other.runOf(*profile) &&
         one.hasOneOf(profile->helperArguments) == other.hasOneOf(profile->helperArguments) &&
         one.hasOneOf(profile->workerArguments) == other.hasOneOf(profile->workerArguments);
}

}  // namespace wakelatch::host
