#include "Host/trace/Privacy.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "Platform/Split.h"
#include "Platform/Text.h"

namespace wakelatch::host {
namespace {

/// Words that tell how an agent runs: once, or for another program.
constexpr std::array<std::string_view, 22> meaningful = {
    "exec",   "e",    "run",   "resume", "app-server",  "exec-server",    "server", "serve",
    "daemon", "mcp",  "acp",   "rpc",    "lsp",         "stdio",          "web",    "headless",
    "json",   "text", "print", "agent",  "stream-json", "pid-update-loop"};

constexpr std::string_view omission = "…";

/// Folders that installers make and not people.
bool isPublicFolder(std::string_view name) {
  constexpr std::array<std::string_view, 6> known = {"node_modules", "bin",      "lib",
                                                     "share",        "versions", "dist"};
  return name.starts_with('.') || name.starts_with('@') || name.ends_with(".app") ||
         std::find(known.begin(), known.end(), name) != known.end();
}

bool isMeaningful(std::string_view word) {
  return std::find(meaningful.begin(), meaningful.end(), word) != meaningful.end();
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

Privacy::Privacy(const std::vector<AgentProfile>& catalogue, std::string home)
    : resolver_(catalogue), home_(std::move(home)) {
  for (const AgentProfile& profile : catalogue) {
    for (const std::string& name : profile.cliProcessNames) {
      names_.insert(platform::lowercased(name));
    }
    for (const std::string& marker : profile.cliPathMarkers) {
      markers_.push_back(platform::lowercased(marker));
    }
  }
}

std::string Privacy::withoutHome(std::string_view text) const {
  std::string result;
  while (home_.size() > 1) {
    const std::size_t at = text.find(home_);
    if (at == text.npos) break;
    const std::string_view rest = text.substr(at + home_.size());
    const bool isFolder = rest.empty() || rest.front() == '/' || rest.front() == ' ';
    result += text.substr(0, at);
    result += isFolder ? "~" : home_;
    text = rest;
  }
  return result.append(text);
}

void Privacy::reduceAgent(ProcessSnapshot& process) const {
  ProcessSnapshot reduced = process;
  reduced.arguments = essential(process);
  ProcessSnapshot homeless = reduced;
  homeless.command = withoutFolders(withoutHome(reduced.command));
  homeless.arguments.clear();
  for (const std::string_view word : platform::Pieces(reduced.arguments, ' ')) {
    if (!homeless.arguments.empty()) homeless.arguments += ' ';
    homeless.arguments += withoutFolders(withoutHome(word));
  }
  process = std::move(isRecognisedAlike(homeless, reduced) ? homeless : reduced);
}

std::string Privacy::withoutFolders(const std::string& path) const {
  if (!path.starts_with("~/")) return path;
  const std::size_t nameStart = path.rfind('/') + 1;
  std::string result;
  bool isOmitted = false;
  for (const std::string_view piece :
       platform::Pieces(std::string_view(path).substr(0, nameStart), '/')) {
    const bool isKept = piece == "~" || isPublicFolder(piece) || isNamedAsAgent(piece) ||
                        hasMarker("/" + std::string(piece) + "/");
    if (isKept || !isOmitted) result.append(isKept ? piece : omission).append("/");
    isOmitted = !isKept;
  }
  return result + path.substr(nameStart);
}

std::string Privacy::essential(const ProcessSnapshot& process) const {
  // Words like agents' names are looked at only where an interpreter or an application runs them.
  const bool isDirect = isNamedAsAgent(process.command);
  bool isProgramDue = AgentResolver::isInterpreter(platform::lastPiece(process.command, '/'));
  bool isFirst = true;
  std::string result;
  for (std::string_view word : platform::Pieces(process.arguments, ' ')) {
    const bool isNeeded = hasMarker(word) || (!isDirect && isNamedAsAgent(word));
    const std::string_view option = optionName(word);
    const bool isProgram = isProgramDue && !isFirst && option.empty();
    if (isProgram) isProgramDue = false;
    if (!isNeeded && !option.empty()) word = option;
    const bool isKept = isFirst || isNeeded || isProgram || !option.empty() || isMeaningful(word);
    if (isKept || !result.ends_with(omission)) {
      result.append(isFirst ? "" : " ").append(isKept ? word : omission);
    }
    isFirst = false;
  }
  return result;
}

void Privacy::reduceOther(ProcessSnapshot& process) const {
  ProcessSnapshot reduced = process;
  reduced.command = process.displayName();
  reduced.arguments.clear();
  // The name alone might be an agent's, where the path says that it is none.
  if (!isRecognisedAlike(reduced, process)) {
    reduced.command = withoutFolders(withoutHome(process.command));
  }
  if (!isRecognisedAlike(reduced, process)) reduced.command = process.command;
  process = std::move(reduced);
}

bool Privacy::isNamedAsAgent(std::string_view word) const {
  return names_.contains(platform::lowercased(platform::lastPiece(word, '/')));
}

bool Privacy::hasMarker(std::string_view word) const {
  const std::string lower = platform::lowercased(word);
  return std::any_of(markers_.begin(), markers_.end(),
                     [&](const std::string& marker) { return lower.find(marker) != lower.npos; });
}

bool Privacy::isRecognisedAlike(const ProcessSnapshot& a, const ProcessSnapshot& b) const {
  return resolver_.profileForCommand(a.command, a.arguments) ==
         resolver_.profileForCommand(b.command, b.arguments);
}

}  // namespace wakelatch::host
