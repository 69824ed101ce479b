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

/// The longest option name that is believed to be one and not a part of a prompt.
constexpr std::size_t maxOption = 32;

bool isMeaningful(std::string_view word) {
  return std::find(meaningful.begin(), meaningful.end(), word) != meaningful.end();
}

bool isOption(std::string_view word) {
  return word.size() > 1 && word.size() <= maxOption && word[0] == '-' &&
         std::all_of(word.begin(), word.end(), [](char c) {
           return c == '-' || std::isalnum(static_cast<unsigned char>(c)) != 0;
         });
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
  homeless.command = withoutHome(reduced.command);
  homeless.arguments = withoutHome(reduced.arguments);
  process = std::move(isRecognisedAlike(homeless, reduced) ? homeless : reduced);
}

std::string Privacy::essential(const ProcessSnapshot& process) const {
  // Words like agents' names are looked at only where an interpreter or an application runs them.
  const bool isDirect = isNamedAsAgent(process.command);
  bool isProgramDue = AgentResolver::isInterpreter(platform::lastPiece(process.command, '/'));
  bool isFirst = true;
  std::string result;
  for (std::string_view word : platform::Pieces(process.arguments, ' ')) {
    const bool isNeeded = hasMarker(word) || (!isDirect && isNamedAsAgent(word));
    if (!isNeeded && word.starts_with('-')) word = word.substr(0, word.find('='));
    const bool isProgram = isProgramDue && !isFirst && !isOption(word);
    if (isProgram) isProgramDue = false;
    const bool isKept = isFirst || isNeeded || isProgram || isOption(word) || isMeaningful(word);
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
  if (!isRecognisedAlike(reduced, process)) reduced.command = withoutHome(process.command);
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
