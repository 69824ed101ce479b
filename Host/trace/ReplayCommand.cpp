// `replay`: what a recording's decisions were, or would have been, and what they were worth. Reads
// recordings, truth and settings files, and the catalogue of agents; prints ticks, an explanation
// or a score, as text or JSON, and writes a page if asked to. Exits with 1 when a file cannot be
// read or is none of these.
#include <chrono>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <utility>

#include "Host/AgentsFile.h"
#include "Host/Commands.h"
#include "Host/Explanation.h"
#include "Host/Notices.h"
#include "Host/StatusReport.h"
#include "Host/TimeText.h"
#include "Host/UserFile.h"
#include "Host/trace/Replay.h"
#include "Host/trace/ScoreReport.h"
#include "Host/trace/Scoring.h"
#include "Platform/Files.h"

namespace wakelatch::host {
namespace {

/// What a reader of the result should know about the trace.
void tellAbout(const Replay& replay, const std::string& file, const AgentProfiles& profiles) {
  if (replay.header().catalogue != profiles.all()) {
    printNotice(file + ": recorded with another catalogue of agents than this program's (" +
                replay.header().program + "): decisions may differ");
  }
}

void printTicks(const std::string& file, const ReplayOptions& options, const Replay::Options& how) {
  Replay replay(file, how);
  tellAbout(replay, file, how.profiles);
  TickLines lines(options.json);
  while (const auto tick = replay.next()) {
    const auto line = lines.next(makeStatusReport(*tick), tick->seen.at);
    if (line) std::cout << *line << '\n';
  }
  if (replay.isCutShort()) printNotice(file + ": its last line is not whole and was left out");
}

void explainMoment(const std::string& file, const ReplayOptions& options,
                   const Replay::Options& how) {
  Replay replay(file, how);
  tellAbout(replay, file, how.profiles);
  const Timestamp start = platform::fromMilliseconds(replay.header().startedAt);
  const Timestamp moment = momentAfter(start, options.explainAt);
  std::optional<OneTick> found;
  Timestamp end = start;
  while (auto tick = replay.next()) {
    end = tick->seen.at;
    if (end <= moment) found = std::move(tick);
  }
  if (!found || end < after(moment, -60)) {
    throw std::runtime_error(file + ": " + options.explainAt + " is not in it: it goes from " +
                             localTime(start) + " to " + localTime(end));
  }
  const Explanation explanation = explain(*found);
  if (options.json) {
    std::cout << encode(explanation, DateCoding::iso8601) << '\n';
  } else {
    std::cout << "At        " << localTime(found->seen.at) << "\n\n"
              << explanationText(explanation);
  }
}

void scoreTraces(const ReplayOptions& options, const Replay::Options& how) {
  if (options.truthFiles.size() != options.files.size()) {
    throw std::runtime_error("one truth file for each recording is wanted: there are " +
                             std::to_string(options.files.size()) + " and " +
                             std::to_string(options.truthFiles.size()));
  }
  Score sum;
  std::vector<ScoredTrace> traces;
  for (std::size_t i = 0; i < options.files.size(); ++i) {
    traces.push_back(scoredTrace(options.files[i], options.truthFiles[i], how));
    sum += score(traces.back(), how.profiles);
  }
  if (options.json) {
    std::cout << encode(sum) << '\n';
  } else {
    std::cout << scoreText(sum);
  }
  if (options.htmlFile.empty()) return;
  platform::writeAtomically(options.htmlFile, scorePage(traces, sum, platform::now()));
  printNotice("wrote " + options.htmlFile);
}

}  // namespace

ExitStatus runCommand(const ReplayOptions& options, Tools& /*tools*/) {
  Replay::Options how{.cpuFactor = options.cpuFactor,
                      .agent = options.agent,
                      .profiles = loadAgents(agentsFiles()).profiles};
  if (!options.settingsFile.empty()) {
    how.settings = decodeFile<GuardSettings>(options.settingsFile);
  }
  if (!options.truthFiles.empty()) {
    scoreTraces(options, how);
    return ExitStatus::done;
  }
  for (const std::string& file : options.files) {
    if (options.explainAt.empty()) {
      printTicks(file, options, how);
    } else {
      explainMoment(file, options, how);
    }
  }
  return ExitStatus::done;
}

}  // namespace wakelatch::host
