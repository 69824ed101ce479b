// Measures how often decisions are wrong: replays every trace of a directory, prints the scores,
// and compares each with its limits. A worse figure fails because it is a fault; a better one fails
// too, so that the change that improved it also tightens the limit.
//
//   accuracy DIRECTORY [--write] [--html FILE]
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "Host/AgentsFile.h"
#include "Host/trace/Limits.h"
#include "Host/trace/ScoreReport.h"
#include "Host/trace/Scoring.h"
#include "Platform/Files.h"

namespace {

using namespace wakelatch;
using namespace wakelatch::host;
namespace fs = std::filesystem;

constexpr const char* traceEnd = ".trace.jsonl";

/// The traces' names without extension, sorted.
std::set<std::string> tracesIn(const fs::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : fs::directory_iterator(directory)) {
    const std::string name = entry.path().filename();
    if (name.ends_with(traceEnd)) names.insert(name.substr(0, name.size() - std::strlen(traceEnd)));
  }
  return names;
}

struct Replayed {
  std::vector<ScoredTrace> traces;
  Score sum;
  std::map<std::string, Figures> figures;  ///< of the whole machine, by trace
};

Replayed replayAll(const fs::path& directory, double cpuFactor) {
  Replayed result;
  // Does not use the catalogue of the user who runs this.
  const AgentProfiles profiles = loadAgents({installedAgentsFile()}).profiles;
  // Default settings, but with sleep after work also with an open lid, so that each sleep requested
  // during work is counted.
  GuardSettings settings;
  for (GuardPowerProfile* profile : {&settings.batteryProfile, &settings.pluggedInProfile}) {
    profile->sleepAfterCompletion = true;
    profile->sleepOnlyIfLidClosed = false;
  }
  for (const std::string& name : tracesIn(directory)) {
    ScoredTrace trace = scoredTrace(
        directory / (name + traceEnd), directory / (name + ".truth.jsonl"),
        {.settings = settings, .cpuFactor = cpuFactor, .profiles = profiles, .isPaced = true});
    trace.title = name;
    const Score score = host::score(trace, profiles);
    result.sum += score;
    result.figures[name] = score.all;
    result.traces.push_back(std::move(trace));
  }
  return result;
}

int run(const fs::path& directory, bool writes, const std::string& htmlFile) {
  const Replayed today = replayAll(directory, 1);
  std::map<std::string, Figures> figures = today.figures;
  std::printf("%zu traces\n%s\n", today.traces.size(), scoreText(today.sum).c_str());
  // The traces as faster machines would have recorded them.
  for (const auto& [name, factor] : {std::pair{"all, at half the CPU", 1. / 2},
                                     std::pair{"all, at a third of the CPU", 1. / 3}}) {
    const Figures& all = figures[name] = replayAll(directory, factor).sum.all;
    std::printf("%-28s not held %.0f s, longest %.0f s, asked for sleep in work %lld times\n", name,
                all.notHeldSeconds, all.longestNotHeldSeconds,
                static_cast<long long>(all.sleepsAskedInWork));
  }
  if (!htmlFile.empty()) {
    platform::writeAtomically(htmlFile, scorePage(today.traces, today.sum, platform::now()));
  }

  const fs::path limitsFile = directory / "limits.json";
  Limits now;
  for (const auto& [name, each] : figures) now[name] = limitOf(each);
  if (writes) {
    platform::writeAtomically(limitsFile, encodeLimits(now));
    fs::permissions(limitsFile, fs::perms(0644));
    return 0;
  }
  const auto differences = compare(loadLimits(limitsFile), now);
  for (const std::string& difference : differences) std::printf("%s\n", difference.c_str());
  if (differences.empty()) return 0;
  std::printf("These are the new limits after: make accuracy WRITE=1\n");
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  bool writes = false;
  std::string directory, htmlFile;
  for (int i = 1; i < argc; ++i) {
    const std::string argument = argv[i];
    if (argument == "--write") {
      writes = true;
    } else if (argument == "--html" && i + 1 < argc) {
      htmlFile = argv[++i];
    } else {
      directory = argument;
    }
  }
  try {
    return run(directory, writes, htmlFile);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "accuracy: %s\n", error.what());
    return 2;
  }
}
