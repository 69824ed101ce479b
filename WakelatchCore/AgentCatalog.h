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

  std::string id = {};           ///< stable; what GuardSettings::disabledAgentIDs lists
  std::string displayName = {};  ///< as shown to the user and named in signals
  Kind kind = Kind::cli;         ///< browsers are watched only when the settings enable them
  std::vector<std::string> bundleIDs = {};        ///< of the agent's own application, lower case
  std::optional<std::string> iconBundleID = {};   ///< of the application whose icon it shows
  std::vector<std::string> appBundleNames = {};   ///< bundle directories without ".app"
  std::vector<std::string> cliProcessNames = {};  ///< executable names
  std::vector<std::string> cliPathMarkers = {};   ///< path fragments, for agents run as scripts
  bool trustsCPUSignal = false;                   ///< CPU load above the threshold is work
  bool scanTerminalText = false;                  ///< its phrases are looked for in terminals too
  bool requireMultiWordPhrases = false;           ///< only phrases with a space count
  std::vector<std::string> activePhrases = {};    ///< UI texts while it works
  std::vector<std::string> idlePhrases = {};      ///< UI texts while it waits
  std::vector<std::string> sessionActivityGlobs = {};  ///< below home; fresh means at work
  bool sessionGlobsSharedWithOtherApps = false;        ///< others write those files too
  std::vector<std::string> sessionCountGlobs = {};     ///< below home; one file a session

  // The built-in catalogue leaves the fields below empty; a host that wants them gives profiles of
  // its own.

  /// Markers and names count only in what runs: an executable, or what an interpreter is told to
  /// run. Otherwise markers count anywhere in the command line, and names anywhere behind an
  /// interpreter.
  bool recognisesProgramsOnly = false;
  ///@{
  /// How it is started, as words of its command line behind the program: an option ("--print"), an
  /// option with its value ("--input-format stream-json") or a subcommand ("exec").
  std::vector<std::string> oneShotArguments = {};  ///< to answer one prompt and end
  std::vector<std::string> serverArguments =
      {};  ///< for another program, whatever the other arguments are
  std::vector<std::string> helperArguments =
      {};  ///< as a helper that stays, idle, when the agent has ended
  std::vector<std::string> workerArguments = {};  ///< as a helper that may finish a turn
  ///@}
  std::vector<TurnRecordFormat> turnRecords = {};  ///< where it writes down its turns
  /// Parts of the command lines of what it runs as tools: it works as long as one is there.
  std::vector<std::string> toolMarkers = {};
  /// In a session that has no turn record yet, a network connection of its own means work.
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
/// All profiles. Order matters: lookups walk it front to back and the first match wins.
std::vector<AgentProfile> builtin();
/// What all agents of a kind have in common; they lack ids and names.
AgentProfile ofKind(AgentProfile::Kind kind);
/// Display names of the command-line agents.
std::set<std::string> cliAgentNames();
/// Lower-cased bundle identifiers of terminal applications.
const std::set<std::string, std::less<>>& terminalBundleIDs();
}  // namespace AgentCatalog

class AgentResolver;

/// The agents that detectors look for, those of the catalogue unless a host has others. A value
/// that is cheap to copy and never changes, for any thread.
class AgentProfiles {
 public:
  /// The built-in ones.
  AgentProfiles();
  /// @param profiles  in the order in which they are tried
  explicit AgentProfiles(std::vector<AgentProfile> profiles);

  /// In the order in which they are tried.
  const std::vector<AgentProfile>& all() const;
  /// Those that the settings admit: not the ones switched off, and browsers only when they are
  /// enabled. Cheap while the settings stay the same.
  AgentResolver watched(const GuardSettings& settings) const;

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;  ///< of all copies
};

/// The agents watched under some settings, and the questions detectors ask about them. A value that
/// is cheap to copy; lookups change nothing but what was reported to the handler and may run on any
/// thread.
class AgentResolver {
 public:
  /// Called with the bundle's name and the executable's name, once per unknown application bundle
  /// (regardless of case) in the life of the process, on the detecting thread and outside any lock.
  /// Should not throw: what it throws comes out of the call that detects.
  using UnmatchedHostBundleHandler =
      std::function<void(const std::string& bundle, const std::string& binary)>;

 private:
  static UnmatchedHostBundleHandler& installedHandler();  ///< an empty one when there is none

 public:
  /// Install it before detection starts: setting it takes no lock. Static initialisers may do so,
  /// and detection may go on after `main`: it lives as long as the process.
  static inline UnmatchedHostBundleHandler& onUnmatchedHostBundle = installedHandler();

  /// @param profiles  in the order in which they are tried
  explicit AgentResolver(std::vector<AgentProfile> profiles);

  ///@{
  /// Copies answer from the same tables.
  AgentResolver(const AgentResolver&) = default;
  AgentResolver& operator=(const AgentResolver&) = default;
  ///@}

  /// Of the built-in agents those that the settings admit.
  static AgentResolver make(const GuardSettings& settings);

  /// In the order in which they are tried.
  const std::vector<AgentProfile>& profiles() const;
  /// The profiles whose phrases are looked for in terminals, in order.
  std::vector<AgentProfile> terminalScanProfiles() const;

  /// The agent whose own application has this identifier, regardless of case; null when there is
  /// none. The profile belongs to the resolver.
  const AgentProfile* profileForBundleID(std::string_view bundleID) const;
  /// The agent that a process runs; null when it runs none. The profile belongs to the resolver. An
  /// agent started from inside an application bundle that no profile names resolves to nothing and
  /// is reported to the handler.
  /// @param path       of the executable
  /// @param arguments  the process's whole argument string
  const AgentProfile* profileForCommand(std::string_view path, std::string_view arguments) const;

  /// The outermost application bundle on the path, without ".app".
  static std::optional<std::string> appBundleName(std::string_view path);
  /// The last component of the path; the path itself when it has none.
  static std::string basename(std::string_view path);
  /// Whether an executable of this name runs programs written as scripts or packages, such as
  /// "node": what it runs tells more than its name.
  static bool isInterpreter(std::string_view executable);

 private:
  struct Tables;
  std::shared_ptr<const Tables> tables_;  ///< of all copies; nothing in it ever changes
};

}  // namespace wakelatch
#pragma GCC visibility pop
