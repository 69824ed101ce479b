#include "Host/CommandLine.h"

#include <CLI/CLI.hpp>
#include <map>
#include <stdexcept>

#include "Host/AgentsFile.h"

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

void addInterval(CLI::App& command, WatchOptions& watch) {
  command
      .add_option("--interval", watch.intervalSeconds,
                  "Seconds between ticks, more than 0 and at most 8 (default 2)")
      ->check([](const std::string& text) {
        double seconds = 0;
        const bool valid = CLI::detail::lexical_cast(text, seconds) && seconds > 0 && seconds <= 8;
        return valid ? std::string() : "must be more than 0 and at most 8 seconds";
      });
}

void addTicks(CLI::App& command, WatchOptions& watch) {
  command.add_option("--ticks", watch.ticks, "Leave after this many ticks")
      ->check(CLI::Range(1, 1000000000));
}

void addAgent(CLI::App& command, std::string& agent) {
  command
      .add_option(
          "--agent", agent,
          "Look for this agent only, an id that `agents` lists, and not for targets of your own")
      ->check([](const std::string& id) -> std::string {
        try {
          std::string known;
          const Agents agents = loadAgents(agentsFiles());
          for (const AgentProfile& profile : agents.profiles.all()) {
            if (profile.id == id) return {};
            known += (known.empty() ? "" : ", ") + profile.id;
          }
          return "no such agent: " + id + "; there are " + known;
        } catch (const std::runtime_error& error) {
          return error.what();
        }
      });
}

void addRecording(CLI::App& command, WatchOptions& watch, const std::string& name) {
  CLI::Option* file = command.add_option(
      name, watch.recordFile,
      "Write what decisions depend on to this file, which must not exist yet, for `replay`");
  if (name.front() != '-') file->required();
  command
      .add_flag("--all-processes", watch.recordsAllProcesses,
                "Record every process with all its arguments: read it before you share it")
      ->needs(file);
}

}  // namespace

std::variant<CommandLine, ExitStatus> parseCommandLine(int argc, const char* const* argv) {
  CLI::App app("Keeps this machine awake while AI coding agents work.", "wakelatch");
  app.require_subcommand(1);
  app.set_version_flag("--version", "wakelatch " WAKELATCH_VERSION, "Say which version this is");
  std::string toolDirectory;
  app.add_option("--tools", toolDirectory,
                 "Directory with programs to run in place of the system's tools of the same name")
      ->check(CLI::ExistingDirectory);

  StatusOptions status;
  CLI::App* statusCommand = app.add_subcommand("status", "What is seen and decided now");
  addAgent(*statusCommand, status.agent);
  statusCommand->add_flag("--json", status.json, "Print one JSON object");
  addMode(*statusCommand, status.mode, "Decide in this mode");

  ExplainOptions explain;
  CLI::App* explainCommand = app.add_subcommand("explain", "Why that is decided, rule by rule");
  addAgent(*explainCommand, explain.agent);
  explainCommand->add_flag("--json", explain.json, "Print one JSON object");
  addMode(*explainCommand, explain.mode, "Decide in this mode");

  WatchOptions watch;
  std::optional<AppMode> watchMode;
  CLI::App* watchCommand =
      app.add_subcommand("watch", "Watch the agents and keep the machine awake, until a signal");
  addMode(*watchCommand, watchMode, "What to do (default watchAgentUI)");
  addInterval(*watchCommand, watch);
  addTicks(*watchCommand, watch);
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

  addAgent(*watchCommand, watch.agent);
  addRecording(*watchCommand, watch, "--record");

  WatchOptions record;
  std::optional<AppMode> recordMode;
  record.dryRun = record.isQuiet = true;
  CLI::App* recordCommand = app.add_subcommand(
      "record", "Write down what decisions depend on, beside a running watch too, until a signal");
  addRecording(*recordCommand, record, "file");
  addMode(*recordCommand, recordMode, "Decide in this mode (default watchAgentUI)");
  addInterval(*recordCommand, record);
  addTicks(*recordCommand, record);
  addAgent(*recordCommand, record.agent);

  ReplayOptions replay;
  CLI::App* replayCommand = app.add_subcommand(
      "replay", "Decide anew on what a recording holds, and score it with --truth");
  replayCommand->add_option("file", replay.files, "Recordings")
      ->required()
      ->check(CLI::ExistingFile);
  CLI::Option* truth =
      replayCommand
          ->add_option(
              "--truth", replay.truthFiles,
              "What the agents really did: prints a score; one file for each recording, in "
              "their order")
          ->allow_extra_args(false)
          ->check(CLI::ExistingFile);
  replayCommand
      ->add_option("--settings", replay.settingsFile, "Settings in place of those recorded")
      ->check(CLI::ExistingFile);
  replayCommand
      ->add_option(
          "--cpu-factor", replay.cpuFactor,
          "Multiply every process's load (default 1): 0.33 is a three times faster machine")
      ->check(CLI::Range(0.001, 1000.0));
  addAgent(*replayCommand, replay.agent);
  CLI::Option* explainAt = replayCommand->add_option(
      "--explain", replay.explainAt,
      "Why that was decided at this moment: 03:12, 03:12:30 (local time) or 2026-11-23T03:12:30Z");
  replayCommand
      ->add_option("--html", replay.htmlFile,
                   "Write the score, with a chart of each recording, to this page")
      ->needs(truth);
  explainAt->excludes(truth);
  replayCommand->add_flag("--json", replay.json, "Print one JSON object a tick, as watch does");

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
  record.mode = recordMode.value_or(record.mode);

  CommandLine line{{}, toolDirectory};
  if (*statusCommand) line.command = status;
  if (*explainCommand) line.command = explain;
  if (*watchCommand) line.command = watch;
  if (*recordCommand) line.command = record;
  if (*replayCommand) line.command = replay;
  if (*agentsCommand) line.command = agents;
  if (*statsCommand) line.command = stats;
  if (*restoreCommand) line.command = restore;
  if (*doctorCommand) line.command = doctor;
  return line;
}

}  // namespace wakelatch::host
