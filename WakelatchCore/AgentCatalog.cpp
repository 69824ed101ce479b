#include "WakelatchCore/AgentCatalog.h"

#include <algorithm>
#include <array>
#include <unordered_set>

#include "Platform/Mutex.h"
#include "Platform/Split.h"
#include "Platform/Text.h"
#include "WakelatchCore/AgentCommandLine.h"

namespace wakelatch {

// Threads may still detect while destructors run after `main`. So static objects are made on first
// use and never destroyed.

// --------------------------------------------------------------------------------- catalog

namespace {

using Kind = AgentProfile::Kind;
/// A list in the table; empty texts do not count.
using Texts = std::array<std::string_view, 5>;

/// The part of an agent's profile that does not follow from its kind.
struct Agent {
  std::string_view id, displayName;
  Kind kind;
  std::string_view iconBundleID = {};  ///< empty: none
  Texts bundleIDs = {}, appBundleNames = {}, cliProcessNames = {}, cliPathMarkers = {};
  Texts activePhrases = {}, idlePhrases = {};
  Texts sessionActivityGlobs = {}, sessionCountGlobs = {};
  bool sessionGlobsSharedWithOtherApps = false;
};

// clang-format off

constexpr Agent editor(std::string_view id, std::string_view displayName, const Texts& bundleIDs,
                       const Texts& appBundleNames) {
  return {.id = id, .displayName = displayName, .kind = Kind::editor,
          .bundleIDs = bundleIDs, .appBundleNames = appBundleNames};
}
constexpr Agent browser(std::string_view id, std::string_view displayName, const Texts& bundleIDs,
                        const Texts& appBundleNames) {
  return {.id = id, .displayName = displayName, .kind = Kind::browser,
          .bundleIDs = bundleIDs, .appBundleNames = appBundleNames};
}

constexpr Agent agents[] = {
    {.id = "claude-code", .displayName = "Claude Code", .kind = Kind::cli,
     .iconBundleID = "com.anthropic.claudefordesktop",
     .cliProcessNames = {"claude"}, .cliPathMarkers = {"/claude-code/", "/claude/versions/"},
     .activePhrases = {"esc to interrupt", "to interrupt", "tokens used", "Context left"},
     .sessionActivityGlobs = {".claude/projects/**/*.jsonl"},
     .sessionCountGlobs = {".claude/projects/**/*.jsonl"}},
    {.id = "codex-cli", .displayName = "Codex CLI", .kind = Kind::cli, .cliProcessNames = {"codex"},
     .activePhrases = {"esc to interrupt", "to interrupt", "tokens used", "Working"},
     .sessionActivityGlobs = {".codex/log/codex-tui.log"},
     .sessionCountGlobs = {".codex/sessions/**/rollout-*.jsonl"}},
    {.id = "gemini-cli", .displayName = "Gemini CLI", .kind = Kind::cli,
     .cliProcessNames = {"gemini"},
     .activePhrases = {"esc to cancel,", "esc to interrupt", "to interrupt", "tokens"}},
    {.id = "copilot-cli", .displayName = "Copilot CLI", .kind = Kind::cli,
     .cliProcessNames = {"copilot"}, .activePhrases = {"esc to interrupt", "to interrupt"}},
    {.id = "opencode", .displayName = "OpenCode", .kind = Kind::cli,
     .cliProcessNames = {"opencode"},
     .activePhrases = {"esc interrupt", "esc to interrupt", "to interrupt", "working"},
     .sessionActivityGlobs = {".local/share/opencode/*.db-wal"},
     .sessionGlobsSharedWithOtherApps = true},
    {.id = "grok-build", .displayName = "Grok Build", .kind = Kind::cli,
     .cliProcessNames = {"grok", "xai-grok-pager"}, .activePhrases = {"to interrupt"},
     .sessionActivityGlobs = {".grok/sessions/**/updates.jsonl"},
     .sessionCountGlobs = {".grok/sessions/**/updates.jsonl"},
     .sessionGlobsSharedWithOtherApps = true},
    {.id = "aider", .displayName = "Aider", .kind = Kind::cli, .cliProcessNames = {"aider"},
     .activePhrases = {"Tokens:", "to interrupt"}},
    {.id = "qwen-code", .displayName = "Qwen Code", .kind = Kind::cli, .cliProcessNames = {"qwen"},
     .activePhrases = {"· esc to cancel)", "esc to interrupt", "to interrupt"}},
    {.id = "pi-coding-agent", .displayName = "Pi", .kind = Kind::cli,
     .cliProcessNames = {"pi"}, .cliPathMarkers = {"/pi-coding-agent/"},
     .activePhrases = {"esc to interrupt", "to interrupt"},
     .sessionActivityGlobs = {".pi/agent/sessions/**/*.jsonl"},
     .sessionCountGlobs = {".pi/agent/sessions/**/*.jsonl"},
     .sessionGlobsSharedWithOtherApps = true},

    {.id = "claude-desktop", .displayName = "Claude", .kind = Kind::desktopAI,
     .bundleIDs = {"com.anthropic.claudefordesktop"}, .appBundleNames = {"Claude"},
     .activePhrases = {"Stop response", "Stop generating", "Thinking"},
     .idlePhrases = {"Reply to Claude", "Message Claude", "How can I help"}},
    {.id = "chatgpt-desktop", .displayName = "ChatGPT", .kind = Kind::desktopAI,
     .bundleIDs = {"com.openai.codex", "com.openai.chat"}, .appBundleNames = {"ChatGPT", "Codex"},
     .activePhrases = {"Stop generating", "Stop streaming", "Stop", "Working", "Generating"},
     .idlePhrases = {"Ask anything", "Message ChatGPT", "Ask Codex"},
     .sessionActivityGlobs = {".codex/sessions/**/rollout-*.jsonl"}},
    {.id = "opencode-desktop", .displayName = "OpenCode Desktop", .kind = Kind::desktopAI,
     .bundleIDs = {"ai.opencode.desktop"}, .appBundleNames = {"OpenCode"}},
    {.id = "qwen-code-desktop", .displayName = "Qwen Code Desktop", .kind = Kind::desktopAI,
     .bundleIDs = {"com.alibaba.qwen-code"}, .appBundleNames = {"Qwen Code Desktop"}},
    {.id = "gemini-desktop", .displayName = "Gemini", .kind = Kind::desktopAI,
     .bundleIDs = {"com.google.geminimacos"}, .appBundleNames = {"Gemini"},
     .activePhrases = {"Stop generating", "Stop"}, .idlePhrases = {"Ask Gemini"}},

    editor("cursor", "Cursor", {"com.todesktop.230313mzl4w4u92"}, {"Cursor"}),
    editor("vscode", "Visual Studio Code", {"com.microsoft.vscode"}, {"Visual Studio Code"}),
    editor("windsurf", "Devin Desktop", {"com.exafunction.windsurf"},
           {"Devin", "Devin Desktop", "Windsurf"}),
    editor("zed", "Zed", {"dev.zed.zed"}, {"Zed"}),
    editor("antigravity", "Antigravity", {"com.google.antigravity", "com.google.antigravity-ide"},
           {"Antigravity", "Antigravity IDE"}),
    editor("kiro", "Kiro", {"dev.kiro.desktop"}, {"Kiro"}),
    editor("trae", "Trae", {"com.trae.app"}, {"Trae"}),

    browser("chrome", "Google Chrome", {"com.google.chrome"}, {"Google Chrome"}),
    browser("arc", "Arc", {"company.thebrowser.browser"}, {"Arc"}),
    browser("safari", "Safari", {"com.apple.safari"}, {"Safari"}),
    browser("comet", "Comet", {"ai.perplexity.comet"}, {"Comet"}),
};

// clang-format on

constexpr bool isNamedOnce(std::string_view id) {
  return !id.empty() && std::count_if(std::begin(agents), std::end(agents),
                                      [id](const Agent& agent) { return agent.id == id; }) == 1;
}
static_assert(std::all_of(std::begin(agents), std::end(agents),
                          [](const Agent& agent) { return isNamedOnce(agent.id); }),
              "each agent has an id of its own");

std::vector<std::string> list(const Texts& texts) {
  std::vector<std::string> entries;
  for (const std::string_view text : texts) {
    if (!text.empty()) entries.emplace_back(text);
  }
  return entries;
}

AgentProfile profileOf(const Agent& agent) {
  AgentProfile profile = AgentCatalog::ofKind(agent.kind);
  profile.id = agent.id;
  profile.displayName = agent.displayName;
  profile.bundleIDs = list(agent.bundleIDs);
  if (!agent.iconBundleID.empty()) profile.iconBundleID = agent.iconBundleID;
  profile.appBundleNames = list(agent.appBundleNames);
  profile.cliProcessNames = list(agent.cliProcessNames);
  profile.cliPathMarkers = list(agent.cliPathMarkers);
  const auto phrases = list(agent.activePhrases);
  if (!phrases.empty()) profile.activePhrases = phrases;
  profile.idlePhrases = list(agent.idlePhrases);
  profile.sessionActivityGlobs = list(agent.sessionActivityGlobs);
  profile.sessionGlobsSharedWithOtherApps = agent.sessionGlobsSharedWithOtherApps;
  profile.sessionCountGlobs = list(agent.sessionCountGlobs);
  return profile;
}

}  // namespace

std::vector<AgentProfile> AgentCatalog::builtin() {
  std::vector<AgentProfile> profiles(std::size(agents));
  std::transform(std::begin(agents), std::end(agents), profiles.begin(), profileOf);
  return profiles;
}

AgentProfile AgentCatalog::ofKind(Kind kind) {
  AgentProfile profile{.kind = kind};
  profile.trustsCPUSignal = profile.scanTerminalText = kind == Kind::cli;
  profile.requireMultiWordPhrases = kind == Kind::editor || kind == Kind::browser;
  // All editors show the same texts, and so do web pages in all browsers.
  if (kind == Kind::editor) profile.activePhrases = {"Stop generating", "Generating response"};
  if (kind == Kind::browser) {
    profile.activePhrases = {"Stop generating", "Claude is working", "Codex is working"};
  }
  return profile;
}

std::set<std::string> AgentCatalog::cliAgentNames() {
  std::set<std::string> names;
  for (const Agent& agent : agents) {
    if (agent.kind == Kind::cli) names.emplace(agent.displayName);
  }
  return names;
}

const std::set<std::string, std::less<>>& AgentCatalog::terminalBundleIDs() {
  static const auto& bundleIDs = *new std::set<std::string, std::less<>>{
      "com.apple.terminal", "com.googlecode.iterm2",  "dev.warp.warp-stable",
      "dev.warp.warp",      "net.kovidgoyal.kitty",   "io.alacritty",
      "co.zeit.hyper",      "com.github.wez.wezterm", "com.mitchellh.ghostty",
  };
  return bundleIDs;
}

// --------------------------------------------------------------------------- agents of a host

struct AgentProfiles::Shared {
  explicit Shared(std::vector<AgentProfile> profiles) : all(std::move(profiles)) {}

  const std::vector<AgentProfile> all;
  // The last resolver is kept: detectors ask several times per tick, and settings seldom change.
  platform::Mutex mutex;
  std::vector<std::string> disabled WAKELATCH_GUARDED_BY(mutex);
  bool hasBrowsers WAKELATCH_GUARDED_BY(mutex) = false;
  std::optional<AgentResolver> last WAKELATCH_GUARDED_BY(mutex);  ///< made for these
};

AgentProfiles::AgentProfiles() {
  static const auto& builtin =
      *new std::shared_ptr<Shared>(std::make_shared<Shared>(AgentCatalog::builtin()));
  shared_ = builtin;
}

AgentProfiles::AgentProfiles(std::vector<AgentProfile> profiles)
    : shared_(std::make_shared<Shared>(std::move(profiles))) {}

const std::vector<AgentProfile>& AgentProfiles::all() const {
  return shared_->all;
}

AgentResolver AgentProfiles::watched(const GuardSettings& settings) const {
  const platform::MutexLock lock(shared_->mutex);
  const std::vector<std::string>& disabled = settings.disabledAgentIDs;
  if (!shared_->last || shared_->disabled != disabled ||
      shared_->hasBrowsers != settings.enableBrowsers) {
    std::vector<AgentProfile> profiles = shared_->all;
    std::erase_if(profiles, [&](const AgentProfile& profile) {
      return std::find(disabled.begin(), disabled.end(), profile.id) != disabled.end() ||
             (profile.kind == Kind::browser && !settings.enableBrowsers);
    });
    shared_->last.emplace(std::move(profiles));
    shared_->disabled = disabled;
    shared_->hasBrowsers = settings.enableBrowsers;
  }
  return *shared_->last;
}

// -------------------------------------------------------------------------------- resolver

namespace {

void reportUnmatchedHostBundle(const AgentResolver::UnmatchedHostBundleHandler& installed,
                               const std::string& bundle, std::string_view binary) {
  struct Reported {
    platform::Mutex mutex;
    std::unordered_set<std::string> bundles WAKELATCH_GUARDED_BY(mutex);  ///< lower-cased
  };
  static auto& reported = *new Reported;

  AgentResolver::UnmatchedHostBundleHandler handler;
  {
    const platform::MutexLock lock(reported.mutex);
    if (!reported.bundles.insert(platform::lowercased(bundle)).second) return;
    handler = installed;
  }
  if (handler) handler(bundle, std::string(binary));
}

/// All profiles' names of one kind, lower-cased, in the order of the profiles.
class Names {
 public:
  Names(const std::vector<AgentProfile>& profiles, std::vector<std::string> AgentProfile::*names) {
    for (const AgentProfile& profile : profiles) {
      for (const std::string& name : profile.*names) {
        rows_.push_back({platform::lowercased(name), &profile});
      }
    }
  }

  /// The first profile with this name, regardless of case; null if there is none.
  const AgentProfile* profileNamed(std::string_view name) const {
    const std::string lower = platform::lowercased(name);
    return firstWith([&lower](const Row& row) { return row.name == lower; });
  }
  /// The first profile with a non-empty name that the text contains, regardless of case, and for
  /// which `isMeant(profile)` holds; null if there is none.
  template <class IsMeant>
  const AgentProfile* profileWithNameIn(std::string_view text, IsMeant isMeant) const {
    const std::string lower = platform::lowercased(text);
    return firstWith([&](const Row& row) {
      return !row.name.empty() && lower.find(row.name) != lower.npos && isMeant(*row.profile);
    });
  }

 private:
  struct Row {
    std::string name;
    const AgentProfile* profile;
  };
  template <class Matches>
  const AgentProfile* firstWith(Matches matches) const {
    const auto found = std::find_if(rows_.begin(), rows_.end(), matches);
    return found == rows_.end() ? nullptr : found->profile;
  }

  std::vector<Row> rows_;
};

}  // namespace

struct AgentResolver::Tables {
  explicit Tables(std::vector<AgentProfile> all) : profiles(std::move(all)) {}
  Tables(const Tables&) = delete;
  Tables& operator=(const Tables&) = delete;

  /// The first agent with a path marker in the command line; null if there is none.
  const AgentProfile* marked(std::string_view path, std::string_view arguments) const {
    const std::string commandLine = std::string(path).append(" ").append(arguments);
    const auto isMeant = [&](const AgentProfile& profile) {
      if (!profile.recognisesProgramsOnly) return true;
      const auto isThis = [&](const AgentProfile& other) { return &other == &profile; };
      return cliPathMarkers.profileWithNameIn(path, isThis) != nullptr ||
             cliPathMarkers.profileWithNameIn(AgentCommandLine(path, arguments).program(),
                                              isThis) != nullptr;
    };
    return cliPathMarkers.profileWithNameIn(commandLine, isMeant);
  }

  /// The base name of the first argument that is named like a command-line agent.
  std::optional<std::string_view> programWithAgentName(std::string_view path,
                                                       std::string_view arguments) const {
    std::optional<std::string_view> program;  // found once: there may be thousands of such words
    for (const std::string_view token : platform::Split(arguments, ' ')) {
      const std::string_view name = platform::baseName(token, '/');
      const AgentProfile* named = cliProcessNames.profileNamed(name);
      if (named == nullptr) continue;
      if (!named->recognisesProgramsOnly) return name;
      if (!program) program = AgentCommandLine(path, arguments).program();
      if (program->data() == token.data()) return name;
    }
    return std::nullopt;
  }

  const std::vector<AgentProfile> profiles;
  const Names bundleIDs{profiles, &AgentProfile::bundleIDs},
      appBundleNames{profiles, &AgentProfile::appBundleNames},
      cliProcessNames{profiles, &AgentProfile::cliProcessNames},
      cliPathMarkers{profiles, &AgentProfile::cliPathMarkers};
};

AgentResolver::UnmatchedHostBundleHandler& AgentResolver::installedHandler() {
  static auto& handler = *new UnmatchedHostBundleHandler;
  return handler;
}

AgentResolver::AgentResolver(std::vector<AgentProfile> profiles)
    : tables_(std::make_shared<const Tables>(std::move(profiles))) {}

AgentResolver AgentResolver::make(const GuardSettings& settings) {
  return AgentProfiles().watched(settings);
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
  // 1. A path marker.
  if (const auto* marked = tables_->marked(path, arguments)) return marked;

  const std::string_view executable = platform::baseName(path, '/');
  const std::optional<std::string> bundle = appBundleName(path);
  if (!bundle) {
    // 2. Outside applications: the name of the executable, or of the program that an interpreter
    // runs.
    if (executable.empty()) return nullptr;
    if (const auto* named = tables_->cliProcessNames.profileNamed(executable)) return named;
    if (!isInterpreter(executable)) return nullptr;
    const auto program = tables_->programWithAgentName(path, arguments);
    return program ? tables_->cliProcessNames.profileNamed(*program) : nullptr;
  }

  // 3. Inside an application: that application's profile, whatever the executable.
  if (const auto* owner = tables_->appBundleNames.profileNamed(*bundle)) return owner;
  if (tables_->cliProcessNames.profileNamed(executable) != nullptr) {
    reportUnmatchedHostBundle(installedHandler(), *bundle, executable);
  } else if (const auto program = tables_->programWithAgentName(path, arguments)) {
    reportUnmatchedHostBundle(installedHandler(), *bundle, *program);
  }
  return nullptr;
}

std::optional<std::string> AgentResolver::appBundleName(std::string_view path) {
  constexpr std::string_view suffix = ".app";
  for (std::string_view piece : platform::Split(path, '/')) {
    if (!piece.ends_with(suffix)) continue;
    piece.remove_suffix(suffix.size());
    return std::string(piece);
  }
  return std::nullopt;
}

std::string AgentResolver::basename(std::string_view path) {
  return std::string(platform::baseName(path, '/'));
}

bool AgentResolver::isInterpreter(std::string_view executable) {
  return isInterpreterName(executable);
}

}  // namespace wakelatch
