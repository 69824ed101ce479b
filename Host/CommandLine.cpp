#include "Host/CommandLine.h"

#include <CLI/CLI.hpp>
#include <set>
#include <stdexcept>

#include "Host/AgentsFile.h"
#include "Host/Terminal.h"

namespace wakelatch::host {
namespace {

/// @param mode  an AppMode, or an optional one
template <class Mode>
void addMode(CLI::App& command, Mode& mode, const std::string& description) {
  std::set<std::string> names;
  for (const AppMode each : allCases<AppMode>()) names.emplace(rawValue(each));
  command
      .add_option_function<std::string>(
          "--mode", [&mode](const std::string& name) { mode = *fromRawValue<AppMode>(name); },
          description)
      ->check(CLI::IsMember(names));
}

/// Checks a number of seconds; `wanted` tells the user which ones are valid.
auto seconds(bool (*areValid)(double), const std::string& wanted) {
  return [=](const std::string& text) {
    double value = 0;
    const bool valid = CLI::detail::lexical_cast(text, value) && areValid(value);
    return valid ? std::string() : "must be " + wanted + " seconds";
  };
}

void addTicking(CLI::App& command, WatchOptions& watch) {
  command
      .add_option(
          "--interval", watch.intervalSeconds,
          "Seconds between ticks, more than 0 and at most 8 (default 2, and 8 while there is "
          "nothing to lose)")
      ->check(seconds([](double value) { return value > 0 && value <= 8; },
                      "more than 0 and at most 8"))
      ->each([&watch](const std::string&) { watch.isIntervalGiven = true; });
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
          std::vector<std::string> known;
          const AgentProfiles profiles = loadAgents(agentsFiles()).profiles;
          for (const AgentProfile& profile : profiles.all()) {
            if (profile.id == id) return {};
            known.push_back(profile.id);
          }
          return "no such agent: " + id + "; there are " + joined(known);
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

  CommandLine line;
  /// Adds a command, whose options become the line's when it is the one that was given.
  const auto add = [&](const char* name, const char* purpose, auto& options) -> CLI::App& {
    return *app.add_subcommand(name, purpose)->callback([&line, &options] {
      line.command = options;
    });
  };
  const auto addReport = [&](const char* name, const char* purpose, auto& options) -> CLI::App& {
    CLI::App& command = add(name, purpose, options);
    command.add_flag("--json", options.json, "Print one JSON object");
    return command;
  };

  StatusOptions status;
  CLI::App& statusCommand = addReport("status", "What is seen and decided now", status);
  addAgent(statusCommand, status.agent);
  addMode(statusCommand, status.mode, "Decide in this mode");

  ExplainOptions explain;
  CLI::App& explainCommand = addReport("explain", "Why that is decided, rule by rule", explain);
  addAgent(explainCommand, explain.agent);
  addMode(explainCommand, explain.mode, "Decide in this mode");

  WatchOptions watch;
  CLI::App& watchCommand =
      add("watch", "Watch the agents and keep the machine awake, until a signal", watch);
  addMode(watchCommand, watch.mode, "What to do (default watchAgentUI)");
  addTicking(watchCommand, watch);
  watchCommand.add_flag("--json", watch.json, "Print one JSON object a tick");
  watchCommand.add_flag("--dry-run", watch.dryRun, "Decide and print, but start nothing");
  watchCommand
      .add_option("--release-delay", watch.releaseDelaySeconds,
                  "Seconds that a lid-closed keep-awake outlasts the work (default 60)")
      ->check(seconds([](double value) { return value >= 0 && value <= 86400; }, "0 to 86400"));
  watchCommand
      .add_option("--caffeinate", watch.caffeinatePath,
                  "Keep-awake tool: called with one word of flags, runs until terminated")
      ->check(CLI::ExistingFile);
  addAgent(watchCommand, watch.agent);
  addRecording(watchCommand, watch, "--record");

  WatchOptions record;
  record.dryRun = record.isQuiet = true;
  CLI::App& recordCommand = add(
      "record", "Write down what decisions depend on, beside a running watch too, until a signal",
      record);
  addRecording(recordCommand, record, "file");
  addMode(recordCommand, record.mode, "Decide in this mode (default watchAgentUI)");
  addTicking(recordCommand, record);
  addAgent(recordCommand, record.agent);

  ReplayOptions replay;
  CLI::App& replayCommand =
      add("replay", "Decide anew on what a recording holds, and score it with --truth", replay);
  replayCommand.add_option("file", replay.files, "Recordings")
      ->required()
      ->check(CLI::ExistingFile);
  CLI::Option* truth =
      replayCommand
          .add_option("--truth", replay.truthFiles,
                      "What the agents really did: prints a score; one file for each recording, in "
                      "their order")
          ->allow_extra_args(false)
          ->check(CLI::ExistingFile);
  replayCommand
      .add_option("--settings", replay.settingsFile, "Settings in place of those recorded")
      ->check(CLI::ExistingFile);
  replayCommand
      .add_option("--cpu-factor", replay.cpuFactor,
                  "Multiply every process's load (default 1): 0.33 is a three times faster machine")
      ->check(CLI::Range(0.001, 1000.0));
  addAgent(replayCommand, replay.agent);
  replayCommand
      .add_option("--explain", replay.explainAt,
                  "Why that was decided at this moment: 03:12, 03:12:30 (local time) or "
                  "2026-11-23T03:12:30Z")
      ->excludes(truth);
  replayCommand
      .add_option("--html", replay.htmlFile,
                  "Write the score, with a chart of each recording, to this page")
      ->needs(truth);
  replayCommand.add_flag("--json", replay.json, "Print one JSON object a tick, as watch does");

  AgentsOptions agents;
  addReport("agents", "The watched agents", agents);

  StatsOptions stats;
  CLI::App& statsCommand = addReport("stats", "What was protected so far", stats);
  statsCommand.add_option("--days", stats.days, "Days shown one by one (default 14)")
      ->check(CLI::Range(1, 3660));
  statsCommand.add_option("--html", stats.htmlFile, "Write a page to this file");

  RestoreOptions restore;
  add("restore", "Restore normal sleep after a crash; only while no watch runs", restore)
      .add_flag("--adopt", restore.adopt, "Also when something else disabled the system's sleep");

  DoctorOptions doctor;
  addReport("doctor", "Check everything; 0 when all is well", doctor);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? ExitStatus::done : ExitStatus::usage;
  }
  line.toolDirectory = toolDirectory;
  return line;
}

}  // namespace wakelatch::host
