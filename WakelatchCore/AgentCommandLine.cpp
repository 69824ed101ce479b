#include "WakelatchCore/AgentCommandLine.h"

#include <algorithm>
#include <iterator>

#include "Platform/Split.h"
#include "Platform/Text.h"

namespace wakelatch {
namespace {

using platform::Split;
using Words = std::vector<std::string_view>;

/// A program that runs scripts or packages. List entries are separated by spaces.
struct Interpreter {
  std::string_view name;
  std::string_view codeOptions = {};   ///< options after which code follows instead of a program
  std::string_view valueOptions = {};  ///< options with a value in the next word
  std::string_view subcommands = {};   ///< words that may precede the program
};

constexpr std::string_view nodeCode = "-e --eval -p --print -pe",
                           nodeValues =
                               "-r --require --import --loader --experimental-loader -C "
                               "--conditions --env-file --title",
                           uvValues =
                               "--from --with --with-editable --with-requirements -p "
                               "--python --project --directory --index-url --env-file",
                           pythonValues = "-W -X";
constexpr Interpreter interpreters[] = {
    {"node", nodeCode, nodeValues},
    {"node_repl", nodeCode, nodeValues},
    {"python", "-c -", pythonValues},
    {"python3", "-c -", pythonValues},
    {"ruby", "-e", "-I -r -C"},
    {"deno", "", "-c --config --import-map --v8-flags", "run"},
    {"bun", "-e --eval -p --print", "-r --preload --cwd -c --config", "run x exec"},
    {"npx", "-c --call", "-p --package -w --workspace"},
    {"uv", "", uvValues, "tool run"},
    {"uvx", "", uvValues},
};

const Interpreter* interpreterNamed(std::string_view executable) {
  const std::string name = platform::lowercased(executable);
  const auto found = std::find_if(std::begin(interpreters), std::end(interpreters),
                                  [&](const Interpreter& each) { return each.name == name; });
  return found == std::end(interpreters) ? nullptr : found;
}

bool isAmong(std::string_view word, std::string_view list) {
  for (const std::string_view each : Split(list, ' ')) {
    if (each == word) return true;
  }
  return false;
}

bool isOption(std::string_view word) {
  return word.size() > 1 && word.front() == '-';
}

bool isScript(std::string_view word) {
  return word.ends_with(".js") || word.ends_with(".mjs") || word.ends_with(".cjs");
}

/// Whether `argument` stands at `words[at]`; an option and its value may also be joined by "=".
bool standsAt(std::string_view argument, const Words& words, std::size_t at) {
  const std::size_t equals = isOption(words[at]) ? words[at].find('=') : words[at].npos;
  Words pieces;
  for (const std::string_view piece : Split(argument, ' ')) pieces.push_back(piece);
  if (equals != words[at].npos) {
    return !pieces.empty() && words[at].substr(0, equals) == pieces[0] &&
           (pieces.size() == 1 ||
            (pieces.size() == 2 && words[at].substr(equals + 1) == pieces[1]));
  }
  return !pieces.empty() && at + pieces.size() <= words.size() &&
         std::equal(pieces.begin(), pieces.end(), words.begin() + static_cast<std::ptrdiff_t>(at));
}

/// Calls `use(at, isSubcommand)` for each word that is an option or may be a subcommand, until it
/// returns true or the prompt may begin.
template <class Use>
void forEachTellingWord(const Words& words, Use&& use) {
  int others = 0;
  bool mayBeValue = false;
  for (std::size_t at = 0; at < words.size() && words[at] != "--"; ++at) {
    const bool isAnOption = isOption(words[at]);
    if (!isAnOption && !mayBeValue && ++others == 2) return;
    if ((isAnOption || others <= 1) && use(at, !isAnOption)) return;
    mayBeValue = isAnOption && words[at].find('=') == words[at].npos;
  }
}

bool isOneOf(const std::vector<std::string>& arguments, const Words& words, std::size_t at) {
  return std::any_of(arguments.begin(), arguments.end(),
                     [&](const std::string& argument) { return standsAt(argument, words, at); });
}

}  // namespace

bool isInterpreterName(std::string_view executable) {
  return interpreterNamed(executable) != nullptr;
}

Words AgentCommandLine::words() const {
  std::string_view rest = arguments_;
  Words words;
  // The program's own name is often its path, which may hold spaces.
  if (rest.starts_with(executable_) &&
      (rest.size() == executable_.size() || rest[executable_.size()] == ' ')) {
    rest.remove_prefix(executable_.size());
  } else {
    rest.remove_prefix(std::min(rest.find(' '), rest.size()));
  }
  for (const std::string_view word : Split(rest, ' ')) words.push_back(word);
  return words;
}

std::optional<std::size_t> AgentCommandLine::programWord(const Words& words) const {
  const Interpreter* known = interpreterNamed(platform::baseName(executable_, '/'));
  const bool isApplication =
      known == nullptr && executable_.find(".app/") != std::string_view::npos;
  if (known == nullptr && !isApplication) return std::nullopt;
  const Interpreter& interpreter = known == nullptr ? interpreters[0] : *known;
  const bool runsModules = interpreter.name.starts_with("python");
  for (std::size_t at = 0; at < words.size(); ++at) {
    const std::string_view word = words[at];
    if (isAmong(word, interpreter.codeOptions)) return std::nullopt;
    if (word == "--" || isAmong(word, interpreter.subcommands)) continue;
    if (isAmong(word, interpreter.valueOptions)) {
      ++at;
    } else if (!isOption(word) && (!isApplication || isScript(word))) {
      return at;
    } else if (!isOption(word)) {
      return std::nullopt;
    } else if (runsModules && word == "-m") {
      return at + 1 < words.size() ? std::optional(at + 1) : std::nullopt;
    }
  }
  return std::nullopt;
}

std::string_view AgentCommandLine::program() const {
  const Words all = words();
  const auto at = programWord(all);
  return at ? all[*at] : std::string_view();
}

Words AgentCommandLine::wordsBehindProgram() const {
  Words all = words();
  if (const auto at = programWord(all)) {
    all.erase(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(*at + 1));
  }
  return all;
}

AgentCommandLine::Run AgentCommandLine::runOf(const AgentProfile& profile) const {
  if (profile.oneShotArguments.empty() && profile.serverArguments.empty()) return Run::interactive;
  const Words words = wordsBehindProgram();
  Run run = Run::interactive;
  forEachTellingWord(words, [&](std::size_t at, bool isSubcommand) {
    // The word after a one-shot option is the prompt.
    if (isSubcommand && run == Run::oneShot) return false;
    if (isOneOf(profile.serverArguments, words, at)) run = Run::server;
    if (run != Run::server && isOneOf(profile.oneShotArguments, words, at)) run = Run::oneShot;
    return run == Run::server;
  });
  return run;
}

bool AgentCommandLine::hasOneOf(const std::vector<std::string>& arguments) const {
  bool isFound = false;
  if (arguments.empty()) return false;
  const Words words = wordsBehindProgram();
  forEachTellingWord(words,
                     [&](std::size_t at, bool) { return isFound = isOneOf(arguments, words, at); });
  return isFound;
}

}  // namespace wakelatch
