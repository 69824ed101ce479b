// The built-in list of watched agents, and the resolver that narrows it by the settings and finds
// the agent behind a bundle identifier or a command line.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "WakelatchCore/Enum.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/TurnRecordFormat.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// How one agent is recognised: by bundle, executable, path, UI text and session files.
struct AgentProfile {
  /// The family of an agent.
  enum class Kind {
    desktopAI,  ///< a desktop agent application
    editor,     ///< a code editor with agent features
    browser,    ///< a web browser, in which agents run as web apps
    cli,        ///< a command-line agent running in a terminal
  };

  std::string id = {};           ///< never changes; GuardSettings::disabledAgentIDs lists these
  std::string displayName = {};  ///< as shown to the user and named in signals
  Kind kind = Kind::cli;         ///< browsers are watched only when the settings enable them
  std::vector<std::string> bundleIDs = {};        ///< of the agent's own application, lower case
  std::optional<std::string> iconBundleID = {};   ///< of the application with the agent's icon
  std::vector<std::string> appBundleNames = {};   ///< bundle directories without ".app"
  std::vector<std::string> cliProcessNames = {};  ///< executable names
  std::vector<std::string> cliPathMarkers = {};   ///< path fragments, for agents run as scripts
  bool trustsCPUSignal = false;                   ///< CPU load above the threshold is work
  bool scanTerminalText = false;                  ///< its phrases are searched in terminals too
  bool requireMultiWordPhrases = false;           ///< only phrases with a space count
  std::vector<std::string> activePhrases = {};    ///< UI texts while it works
  std::vector<std::string> idlePhrases = {};      ///< UI texts while it waits
  std::vector<std::string> sessionActivityGlobs = {};  ///< files below home, written during work
  bool sessionGlobsSharedWithOtherApps = false;        ///< other applications write those too
  std::vector<std::string> sessionCountGlobs = {};     ///< files below home, one per session

  // The built-in catalogue leaves the fields below empty; a host that wants them gives profiles of
  // its own.

  /// If true, cliPathMarkers and cliProcessNames are searched only in the program that runs: the
  /// executable, or the script that an interpreter runs. If false, markers are searched in the
  /// whole command line, and names in all words after an interpreter.
  bool recognisesProgramsOnly = false;
  ///@{
  /// Arguments that show how the agent was started: an option ("--print"), an option with its value
  /// ("--input-format stream-json") or a subcommand ("exec").
  std::vector<std::string> oneShotArguments = {};  ///< it answers one prompt and ends
  std::vector<std::string> serverArguments = {};  ///< it serves another program; overrides one-shot
  /// It is a helper that keeps running, idle, after the agent has ended.
  std::vector<std::string> helperArguments = {};
  /// It is a helper that may still finish a turn after the agent has ended.
  std::vector<std::string> workerArguments = {};
  ///@}
  std::vector<TurnRecordFormat> turnRecords = {};  ///< where it records its turns
  /// Texts in the command lines of its tools' processes. While one of these runs, the agent is at
  /// work.
  std::vector<std::string> toolMarkers = {};
  /// Whether a network connection of its own means work in a session that has no turn record yet.
  bool isConnectedOnlyInTurns = false;

  friend bool operator==(const AgentProfile&, const AgentProfile&) = default;
};
template <>
inline constexpr auto enumCases<AgentProfile::Kind> = std::to_array<EnumCase<AgentProfile::Kind>>({
    {AgentProfile::Kind::desktopAI, "desktopAI"},
    {AgentProfile::Kind::editor, "editor"},
    {AgentProfile::Kind::browser, "browser"},
    {AgentProfile::Kind::cli, "cli"},
});

/// The agents that this library knows.
namespace AgentCatalog {
/// All built-in profiles, in the order in which they are tried: the first match wins.
std::vector<AgentProfile> builtin();
/// A profile with what all agents of a kind have in common, without id and names.
AgentProfile ofKind(AgentProfile::Kind kind);
/// Display names of the command-line agents.
std::set<std::string> cliAgentNames();
/// Lower-cased bundle identifiers of terminal applications.
const std::set<std::string, std::less<>>& terminalBundleIDs();
}  // namespace AgentCatalog

class AgentResolver;

/// The agents that detectors look for: the built-in ones unless a host gives others. An immutable
/// value that is cheap to copy; callable from any thread.
class AgentProfiles {
 public:
  /// The built-in agents.
  AgentProfiles();
  /// @param profiles  in the order in which they are tried
  explicit AgentProfiles(std::vector<AgentProfile> profiles);

  /// All profiles, in the order in which they are tried.
  const std::vector<AgentProfile>& all() const;
  /// The agents that the settings admit: none that is disabled, and browsers only if enabled. Cheap
  /// while the settings stay the same.
  AgentResolver watched(const GuardSettings& settings) const;

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;  ///< shared by all copies
};

/// The agents watched under some settings, and the lookups that detectors need. A value that is
/// cheap to copy; all lookups may run on any thread. profileForCommand() may call the handler
/// below.
class AgentResolver {
 public:
  /// Called with the names of the bundle and of the executable when an agent runs inside an
  /// application bundle that no profile names: once per bundle name (regardless of case) in the
  /// life of the process, on the detecting thread and outside any lock. Should not throw: an
  /// exception passes through the detecting call.
  using UnmatchedHostBundleHandler =
      std::function<void(const std::string& bundle, const std::string& binary)>;

 private:
  static UnmatchedHostBundleHandler& installedHandler();  ///< initially empty

 public:
  /// The handler; none if empty. Set it before detection starts, as setting it takes no lock.
  /// Static initialisers may set it. It is never destroyed, so detection may continue after `main`.
  static inline UnmatchedHostBundleHandler& onUnmatchedHostBundle = installedHandler();

  /// @param profiles  in the order in which they are tried
  explicit AgentResolver(std::vector<AgentProfile> profiles);

  ///@{
  /// Copies answer from the same tables.
  AgentResolver(const AgentResolver&) = default;
  AgentResolver& operator=(const AgentResolver&) = default;
  ///@}

  /// A resolver for the built-in agents that the settings admit.
  static AgentResolver make(const GuardSettings& settings);

  /// The watched profiles, in the order in which they are tried.
  const std::vector<AgentProfile>& profiles() const;
  /// The profiles whose phrases are searched in terminals too, in order.
  std::vector<AgentProfile> terminalScanProfiles() const;

  /// The agent whose own application has this identifier, regardless of case; null if there is
  /// none. The profile lives as long as the resolver or a copy of it.
  const AgentProfile* profileForBundleID(std::string_view bundleID) const;
  /// The agent that a process runs; null if it runs none. The profile lives as long as the resolver
  /// or a copy of it. An agent inside an application bundle that no profile names gives null and is
  /// reported to the handler.
  /// @param path       path of the executable
  /// @param arguments  the process's whole argument string
  const AgentProfile* profileForCommand(std::string_view path, std::string_view arguments) const;

  /// The outermost application bundle on the path, without ".app".
  static std::optional<std::string> appBundleName(std::string_view path);
  /// The last component of the path; the path itself when it has none.
  static std::string basename(std::string_view path);
  /// Whether an executable of this name, such as "node", runs programs that are scripts or
  /// packages, so that an agent has to be found in its arguments.
  static bool isInterpreter(std::string_view executable);

 private:
  struct Tables;
  std::shared_ptr<const Tables> tables_;  ///< immutable, shared by all copies
};

}  // namespace wakelatch
#pragma GCC visibility pop
