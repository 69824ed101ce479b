#include "Host/CommandLine.h"

#include <CLI/CLI.hpp>
#include <map>

namespace wakelatch::host {
namespace {

std::map<std::string, AppMode> modesByName() {
  std::map<std::string, AppMode> modes;
  for (const AppMode mode : allCases<AppMode>()) modes.emplace(rawValue(mode), mode);
  return modes;
}

void addMode(CLI::App& command, std::optional<AppMode>& mode, const std::string& description) {
  command
      .add_option_function<std::string>(
          "--mode", [&mode](const std::string& name) { mode = fromRawValue<AppMode>(name); },
          description)
      ->check(CLI::IsMember(modesByName()));
}

}  // namespace

std::variant<CommandLine, ExitStatus> parseCommandLine(int argc, const char* const* argv) {
  CLI::App app("Keeps this machine awake while AI coding agents work.", "wakelatch");
  app.require_subcommand(1);
  std::string toolFolder;
  app.add_option("--tools", toolFolder,
                 "Folder with programs to run in place of the system's tools of the same name")
      ->check(CLI::ExistingDirectory);

  StatusOptions status;
  CLI::App* statusCommand = app.add_subcommand("status", "What is seen and decided now");
  statusCommand->add_flag("--json", status.json, "Print one JSON object");
  addMode(*statusCommand, status.mode, "Decide in this mode");

  ExplainOptions explain;
  CLI::App* explainCommand = app.add_subcommand("explain", "Why that is decided, rule by rule");
  explainCommand->add_flag("--json", explain.json, "Print one JSON object");
  addMode(*explainCommand, explain.mode, "Decide in this mode");

  WatchOptions watch;
  std::optional<AppMode> watchMode;
  CLI::App* watchCommand =
      app.add_subcommand("watch", "Watch the agents and keep the machine awake, until a signal");
  addMode(*watchCommand, watchMode, "What to do (default watchAgentUI)");
  watchCommand
      ->add_option("--interval", watch.intervalSeconds,
                   "Seconds between ticks, more than 0 and at most 8 (default 2)")
      ->check([](const std::string& text) {
        double seconds = 0;
        const bool valid = CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds <= 8;
        return valid ? std::string() : "must be more than 0 and at most 8 seconds";
      });
  watchCommand->add_option("--ticks", watch.ticks, "Leave after this many ticks")
      ->check(CLI::Range(1, 1000000000));
  watchCommand->add_flag("--json", watch.json, "Print one JSON object a tick");
  watchCommand->add_flag("--dry-run", watch.dryRun, "Decide and print, but start nothing");
  watchCommand
      ->add_option("--release-delay", watch.releaseDelaySeconds,
                   "Seconds that a lid-closed keep-awake outlasts the work (default 60)")
      ->check([](const std::string& text) {
        double seconds = 0;
        const bool valid =
            CLI::detail::lexical_cast(text, seconds) && seconds >= 0 && seconds <= 86400;
        return valid ? std::string() : "must be 0 to 86400 seconds";
      });
  watchCommand
      ->add_option("--caffeinate", watch.caffeinatePath,
                   "Keep-awake tool: called with one word of flags, runs until terminated")
      ->check(CLI::ExistingFile);

  AgentsOptions agents;
  CLI::App* agentsCommand = app.add_subcommand("agents", "The watched agents");
  agentsCommand->add_flag("--json", agents.json, "Print one JSON object");

  StatsOptions stats;
  CLI::App* statsCommand = app.add_subcommand("stats", "What was protected so far");
  statsCommand->add_option("--days", stats.days, "Days shown one by one (default 14)")
      ->check(CLI::Range(1, 3660));
  statsCommand->add_flag("--json", stats.json, "Print one JSON object");
  statsCommand->add_option("--html", stats.htmlFile, "Write a page to this file");

  RestoreOptions restore;
  CLI::App* restoreCommand =
      app.add_subcommand("restore", "Restore normal sleep after a crash; only while no watch runs");
  restoreCommand->add_flag("--adopt", restore.adopt,
                           "Also when something else disabled the system's sleep");

  DoctorOptions doctor;
  CLI::App* doctorCommand = app.add_subcommand("doctor", "Check everything; 0 when all is well");
  doctorCommand->add_flag("--json", doctor.json, "Print one JSON object");

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? ExitStatus::done : ExitStatus::usage;
  }
  watch.mode = watchMode.value_or(watch.mode);

  CommandLine line{{}, toolFolder};
  if (*statusCommand) line.command = status;
  if (*explainCommand) line.command = explain;
  if (*watchCommand) line.command = watch;
  if (*agentsCommand) line.command = agents;
  if (*statsCommand) line.command = stats;
  if (*restoreCommand) line.command = restore;
  if (*doctorCommand) line.command = doctor;
  return line;
}

}  // namespace wakelatch::host
