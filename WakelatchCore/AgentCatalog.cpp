#include "WakelatchCore/AgentCatalog.h"

#include <algorithm>
#include <array>
#include <unordered_set>

#include "Platform/Mutex.h"
#include "Platform/Split.h"
#include "Platform/Text.h"
#include "Platform/Utf8.h"

namespace wakelatch {

// --------------------------------------------------------------------------------- catalog

namespace {

using Kind = AgentProfile::Kind;
/// A list in a table; the empty texts at its end are no entries.
using Texts = std::array<std::string_view, 5>;

struct Identity {
  std::string_view id, displayName;
  Kind kind;
  Texts bundleIDs, appBundleNames, cliProcessNames, cliPathMarkers;
};

struct Flags {
  Kind kind;
  bool trustsCPUSignal, scanTerminalText, requireMultiWordPhrases;
};

struct Icon {
  std::string_view id, iconBundleID;
};

struct Phrases {
  std::string_view id;
  Texts active, idle;
};

struct SessionFiles {
  std::string_view id;
  Texts activityGlobs;
  bool sharedWithOtherApps;
  Texts countGlobs;
};

// clang-format off

constexpr Identity identities[] = {
    // id, display name, kind; bundle identifiers; application bundles; executables; path markers
    {"claude-code", "Claude Code", Kind::cli, {}, {}, {"claude"}, {"/claude-code/", "/claude/versions/"}},
    {"codex-cli", "Codex CLI", Kind::cli, {}, {}, {"codex"}, {}},
    {"gemini-cli", "Gemini CLI", Kind::cli, {}, {}, {"gemini"}, {}},
    {"copilot-cli", "Copilot CLI", Kind::cli, {}, {}, {"copilot"}, {}},
    {"opencode", "OpenCode", Kind::cli, {}, {}, {"opencode"}, {}},
    {"grok-build", "Grok Build", Kind::cli, {}, {}, {"grok", "xai-grok-pager"}, {}},
    {"aider", "Aider", Kind::cli, {}, {}, {"aider"}, {}},
    {"qwen-code", "Qwen Code", Kind::cli, {}, {}, {"qwen"}, {}},
    {"pi-coding-agent", "Pi", Kind::cli, {}, {}, {"pi"}, {"/pi-coding-agent/"}},
    {"claude-desktop", "Claude", Kind::desktopAI, {"com.anthropic.claudefordesktop"}, {"Claude"}, {}, {}},
    {"chatgpt-desktop", "ChatGPT", Kind::desktopAI, {"com.openai.codex", "com.openai.chat"}, {"ChatGPT", "Codex"}, {}, {}},
    {"opencode-desktop", "OpenCode Desktop", Kind::desktopAI, {"ai.opencode.desktop"}, {"OpenCode"}, {}, {}},
    {"qwen-code-desktop", "Qwen Code Desktop", Kind::desktopAI, {"com.alibaba.qwen-code"}, {"Qwen Code Desktop"}, {}, {}},
    {"gemini-desktop", "Gemini", Kind::desktopAI, {"com.google.geminimacos"}, {"Gemini"}, {}, {}},
    {"cursor", "Cursor", Kind::editor, {"com.todesktop.230313mzl4w4u92"}, {"Cursor"}, {}, {}},
    {"vscode", "Visual Studio Code", Kind::editor, {"com.microsoft.vscode"}, {"Visual Studio Code"}, {}, {}},
    {"windsurf", "Devin Desktop", Kind::editor, {"com.exafunction.windsurf"}, {"Devin", "Devin Desktop", "Windsurf"}, {}, {}},
    {"zed", "Zed", Kind::editor, {"dev.zed.zed"}, {"Zed"}, {}, {}},
    {"antigravity", "Antigravity", Kind::editor, {"com.google.antigravity", "com.google.antigravity-ide"}, {"Antigravity", "Antigravity IDE"}, {}, {}},
    {"kiro", "Kiro", Kind::editor, {"dev.kiro.desktop"}, {"Kiro"}, {}, {}},
    {"trae", "Trae", Kind::editor, {"com.trae.app"}, {"Trae"}, {}, {}},
    {"chrome", "Google Chrome", Kind::browser, {"com.google.chrome"}, {"Google Chrome"}, {}, {}},
    {"arc", "Arc", Kind::browser, {"company.thebrowser.browser"}, {"Arc"}, {}, {}},
    {"safari", "Safari", Kind::browser, {"com.apple.safari"}, {"Safari"}, {}, {}},
    {"comet", "Comet", Kind::browser, {"ai.perplexity.comet"}, {"Comet"}, {}, {}},
};

constexpr Icon icons[] = {
    {"claude-code", "com.anthropic.claudefordesktop"},
};

constexpr Flags flags[] = {
    // kind, trusts CPU signal, scan terminal text, require multi-word phrases
    {Kind::cli, true, true, false},
    {Kind::desktopAI, false, false, false},
    {Kind::editor, false, false, true},
    {Kind::browser, false, false, true},
};

constexpr Phrases phrases[] = {
    // id; texts while it works; texts while it waits
    {"claude-code", {"esc to interrupt", "to interrupt", "tokens used", "Context left"}, {}},
    {"codex-cli", {"esc to interrupt", "to interrupt", "tokens used", "Working"}, {}},
    {"gemini-cli", {"esc to cancel,", "esc to interrupt", "to interrupt", "tokens"}, {}},
    {"copilot-cli", {"esc to interrupt", "to interrupt"}, {}},
    {"opencode", {"esc interrupt", "esc to interrupt", "to interrupt", "working"}, {}},
    {"grok-build", {"to interrupt"}, {}},
    {"aider", {"Tokens:", "to interrupt"}, {}},
    {"qwen-code", {"· esc to cancel)", "esc to interrupt", "to interrupt"}, {}},
    {"pi-coding-agent", {"esc to interrupt", "to interrupt"}, {}},
    {"claude-desktop", {"Stop response", "Stop generating", "Thinking"}, {"Reply to Claude", "Message Claude", "How can I help"}},
    {"chatgpt-desktop", {"Stop generating", "Stop streaming", "Stop", "Working", "Generating"}, {"Ask anything", "Message ChatGPT", "Ask Codex"}},
    {"opencode-desktop", {}, {}},
    {"qwen-code-desktop", {}, {}},
    {"gemini-desktop", {"Stop generating", "Stop"}, {"Ask Gemini"}},
    {"cursor", {"Stop generating", "Generating response"}, {}},
    {"vscode", {"Stop generating", "Generating response"}, {}},
    {"windsurf", {"Stop generating", "Generating response"}, {}},
    {"zed", {"Stop generating", "Generating response"}, {}},
    {"antigravity", {"Stop generating", "Generating response"}, {}},
    {"kiro", {"Stop generating", "Generating response"}, {}},
    {"trae", {"Stop generating", "Generating response"}, {}},
    {"chrome", {"Stop generating", "Claude is working", "Codex is working"}, {}},
    {"arc", {"Stop generating", "Claude is working", "Codex is working"}, {}},
    {"safari", {"Stop generating", "Claude is working", "Codex is working"}, {}},
    {"comet", {"Stop generating", "Claude is working", "Codex is working"}, {}},
};

constexpr SessionFiles sessionFiles[] = {
    // id; files that are fresh while it works; whether other applications write them; one a session
    {"claude-code", {".claude/projects/**/*.jsonl"}, false, {".claude/projects/**/*.jsonl"}},
    {"codex-cli", {".codex/log/codex-tui.log"}, false, {".codex/sessions/**/rollout-*.jsonl"}},
    {"opencode", {".local/share/opencode/*.db-wal"}, true, {}},
    {"grok-build", {".grok/sessions/**/updates.jsonl"}, true, {".grok/sessions/**/updates.jsonl"}},
    {"pi-coding-agent", {".pi/agent/sessions/**/*.jsonl"}, true, {".pi/agent/sessions/**/*.jsonl"}},
    {"chatgpt-desktop", {".codex/sessions/**/rollout-*.jsonl"}, false, {}},
};

// clang-format on

/// The row of `table` whose first column is `key`; an empty row when there is none.
template <class Row, std::size_t size, class Key>
Row rowFor(const Key& key, Key Row::*column, const Row (&table)[size]) {
  const auto row = std::find_if(std::begin(table), std::end(table),
                                [&](const Row& candidate) { return candidate.*column == key; });
  return row == std::end(table) ? Row{} : *row;
}

std::vector<std::string> list(const Texts& texts) {
  return {texts.begin(), std::find(texts.begin(), texts.end(), std::string_view())};
}

AgentProfile profileOf(const Identity& agent) {
  const auto icon = rowFor(agent.id, &Icon::id, icons);
  const auto flag = rowFor(agent.kind, &Flags::kind, flags);
  const auto phrase = rowFor(agent.id, &Phrases::id, phrases);
  const auto files = rowFor(agent.id, &SessionFiles::id, sessionFiles);
  return {
      .id = std::string(agent.id),
      .displayName = std::string(agent.displayName),
      .kind = agent.kind,
      .bundleIDs = list(agent.bundleIDs),
      .iconBundleID =
          icon.id.empty() ? std::nullopt : std::optional(std::string(icon.iconBundleID)),
      .appBundleNames = list(agent.appBundleNames),
      .cliProcessNames = list(agent.cliProcessNames),
      .cliPathMarkers = list(agent.cliPathMarkers),
      .trustsCPUSignal = flag.trustsCPUSignal,
      .scanTerminalText = flag.scanTerminalText,
      .requireMultiWordPhrases = flag.requireMultiWordPhrases,
      .activePhrases = list(phrase.active),
      .idlePhrases = list(phrase.idle),
      .sessionActivityGlobs = list(files.activityGlobs),
      .sessionGlobsSharedWithOtherApps = files.sharedWithOtherApps,
      .sessionCountGlobs = list(files.countGlobs),
  };
}

}  // namespace

std::vector<AgentProfile> AgentCatalog::builtin() {
  std::vector<AgentProfile> profiles;
  profiles.reserve(std::size(identities));
  for (const Identity& agent : identities) profiles.push_back(profileOf(agent));
  return profiles;
}

std::set<std::string> AgentCatalog::cliAgentNames() {
  std::set<std::string> names;
  for (const Identity& agent : identities) {
    if (agent.kind == Kind::cli) names.emplace(agent.displayName);
  }
  return names;
}

const std::set<std::string, std::less<>>& AgentCatalog::terminalBundleIDs() {
  static const std::set<std::string, std::less<>> bundleIDs = {
      "com.apple.terminal", "com.googlecode.iterm2",  "dev.warp.warp-stable",
      "dev.warp.warp",      "net.kovidgoyal.kitty",   "io.alacritty",
      "co.zeit.hyper",      "com.github.wez.wezterm", "com.mitchellh.ghostty",
  };
  return bundleIDs;
}

// -------------------------------------------------------------------------------- resolver

namespace {

/// Programs that run agents written as scripts or packages.
constexpr std::array<std::string_view, 10> interpreters = {
    "node", "node_repl", "python", "python3", "ruby", "deno", "bun", "npx", "uv", "uvx"};

constexpr char asciiUpper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - ('a' - 'A')) : c;
}

bool startsWithIgnoringAsciiCase(std::string_view text, std::string_view lowerPrefix) {
  return text.size() >= lowerPrefix.size() &&
         std::equal(lowerPrefix.begin(), lowerPrefix.end(), text.begin(),
                    [](char lower, char c) { return platform::asciiLowercased(c) == lower; });
}

/// An empty needle is contained nowhere. Fast for needles that do not begin with a letter.
bool containsIgnoringAsciiCase(std::string_view text, std::string_view lowerNeedle) {
  if (lowerNeedle.empty()) return false;
  const char first = lowerNeedle.front(), capital = asciiUpper(first);
  const char both[] = {first, capital};
  const auto find = [&](std::size_t from) {
    return first == capital ? text.find(first, from) : text.find_first_of(both, from, 2);
  };
  for (std::size_t at = find(0); at != text.npos; at = find(at + 1)) {
    if (startsWithIgnoringAsciiCase(text.substr(at), lowerNeedle)) return true;
  }
  return false;
}

void reportUnmatchedHostBundle(const std::string& bundle, std::string_view binary) {
  struct Reported {
    platform::Mutex mutex;
    std::unordered_set<std::string> bundles WAKELATCH_GUARDED_BY(mutex);  ///< lower-cased
  };
  static auto& reported = *new Reported;  // never destroyed: others may detect until the end

  AgentResolver::UnmatchedHostBundleHandler handler;
  {
    const platform::MutexLock lock(reported.mutex);
    if (!reported.bundles.insert(platform::lowercased(bundle)).second) return;
    handler = AgentResolver::onUnmatchedHostBundle;
  }
  if (handler) handler(bundle, std::string(binary));
}

}  // namespace

AgentResolver::UnmatchedHostBundleHandler AgentResolver::onUnmatchedHostBundle;

namespace {

/// One kind of name, lower-cased, in the order of the profiles. Answers are profiles, or null.
class Names {
 public:
  Names(const std::vector<AgentProfile>& profiles, std::vector<std::string> AgentProfile::*names) {
    for (const AgentProfile& profile : profiles) {
      for (const std::string& name : profile.*names) {
        rows_.push_back({platform::lowercased(name), &profile});
      }
    }
  }

  /// The first profile with this name, regardless of case.
  const AgentProfile* profileNamed(std::string_view name) const {
    std::string lower;  // ASCII needs no copy: comparing ignores its case
    if (!platform::isAllAscii(name)) name = lower = platform::lowercased(name);
    return firstWith([name](const std::string& known) {
      return known.size() == name.size() && startsWithIgnoringAsciiCase(name, known);
    });
  }
  /// The first profile with a name that the text contains, regardless of case.
  const AgentProfile* profileWithNameIn(std::string_view text) const {
    std::string lower;
    if (!platform::isAllAscii(text)) text = lower = platform::lowercased(text);
    return firstWith(
        [text](const std::string& known) { return containsIgnoringAsciiCase(text, known); });
  }

 private:
  struct Row {
    std::string name;
    const AgentProfile* profile;
  };
  template <class Matches>
  const AgentProfile* firstWith(Matches matches) const {
    const auto found =
        std::find_if(rows_.begin(), rows_.end(), [&](const Row& row) { return matches(row.name); });
    return found == rows_.end() ? nullptr : found->profile;
  }

  std::vector<Row> rows_;
};

}  // namespace

struct AgentResolver::Tables {
  explicit Tables(std::vector<AgentProfile> all) : profiles(std::move(all)) {}
  Tables(const Tables&) = delete;
  Tables& operator=(const Tables&) = delete;

  /// The first program among the arguments that is named like a command-line agent.
  std::optional<std::string_view> programWithAgentName(std::string_view arguments) const {
    for (const std::string_view token : platform::Pieces(arguments, ' ')) {
      const std::string_view program = platform::lastPiece(token, '/');
      if (cliProcessNames.profileNamed(program) != nullptr) return program;
    }
    return std::nullopt;
  }

  const std::vector<AgentProfile> profiles;
  const Names bundleIDs{profiles, &AgentProfile::bundleIDs},
      appBundleNames{profiles, &AgentProfile::appBundleNames},
      cliProcessNames{profiles, &AgentProfile::cliProcessNames},
      cliPathMarkers{profiles, &AgentProfile::cliPathMarkers};
};

AgentResolver::AgentResolver(std::vector<AgentProfile> profiles)
    : tables_(std::make_shared<const Tables>(std::move(profiles))) {}

AgentResolver AgentResolver::make(const GuardSettings& settings) {
  // The detectors ask several times a tick; the settings seldom change.
  struct Last {
    platform::Mutex mutex;
    std::vector<std::string> disabled WAKELATCH_GUARDED_BY(mutex);
    bool hasBrowsers WAKELATCH_GUARDED_BY(mutex) = false;
    std::optional<AgentResolver> made WAKELATCH_GUARDED_BY(mutex);
  };
  static auto& last = *new Last;  // never destroyed: others may detect until the end

  const platform::MutexLock lock(last.mutex);
  const std::vector<std::string>& disabled = settings.disabledAgentIDs;
  if (!last.made || last.disabled != disabled || last.hasBrowsers != settings.enableBrowsers) {
    std::vector<AgentProfile> profiles = AgentCatalog::builtin();
    std::erase_if(profiles, [&](const AgentProfile& profile) {
      return std::find(disabled.begin(), disabled.end(), profile.id) != disabled.end() ||
             (profile.kind == Kind::browser && !settings.enableBrowsers);
    });
    last.made.emplace(std::move(profiles));
    last.disabled = disabled;
    last.hasBrowsers = settings.enableBrowsers;
  }
  return *last.made;
}

const std::vector<AgentProfile>& AgentResolver::profiles() const {
  return tables_->profiles;
}

std::vector<AgentProfile> AgentResolver::terminalScanProfiles() const {
  std::vector<AgentProfile> scanned;
  std::copy_if(profiles().begin(), profiles().end(), std::back_inserter(scanned),
               [](const AgentProfile& profile) { return profile.scanTerminalText; });
  return scanned;
}

const AgentProfile* AgentResolver::profileForBundleID(std::string_view bundleID) const {
  return tables_->bundleIDs.profileNamed(bundleID);
}

const AgentProfile* AgentResolver::profileForCommand(std::string_view path,
                                                     std::string_view arguments) const {
  // 1. A path marker, wherever it stands.
  const std::string commandLine = std::string(path).append(" ").append(arguments);
  if (const auto* marked = tables_->cliPathMarkers.profileWithNameIn(commandLine)) return marked;

  const std::string_view executable = platform::lastPiece(path, '/');
  const std::optional<std::string> bundle = appBundleName(path);
  if (!bundle) {
    // 2. Outside applications: the executable's name, or that of what an interpreter runs.
    if (executable.empty()) return nullptr;
    if (const auto* named = tables_->cliProcessNames.profileNamed(executable)) return named;
    if (!isInterpreter(executable)) return nullptr;
    const auto program = tables_->programWithAgentName(arguments);
    return program ? tables_->cliProcessNames.profileNamed(*program) : nullptr;
  }

  // 3. Inside an application: that application's profile, whatever the executable.
  if (const auto* owner = tables_->appBundleNames.profileNamed(*bundle)) return owner;
  if (tables_->cliProcessNames.profileNamed(executable) != nullptr) {
    reportUnmatchedHostBundle(*bundle, executable);
  } else if (const auto program = tables_->programWithAgentName(arguments)) {
    reportUnmatchedHostBundle(*bundle, *program);
  }
  return nullptr;
}

std::optional<std::string> AgentResolver::appBundleName(std::string_view path) {
  constexpr std::string_view suffix = ".app";
  for (std::string_view piece : platform::Pieces(path, '/')) {
    if (!piece.ends_with(suffix)) continue;
    piece.remove_suffix(suffix.size());
    return std::string(piece);
  }
  return std::nullopt;
}

std::string AgentResolver::basename(std::string_view path) {
  return std::string(platform::lastPiece(path, '/'));
}

bool AgentResolver::isInterpreter(std::string_view executable) {
  return std::find(interpreters.begin(), interpreters.end(), platform::lowercased(executable)) !=
         interpreters.end();
}

}  // namespace wakelatch
