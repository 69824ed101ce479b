// The cost of an idle tick of a watch, in CPU time of this process: with many session files
// compared with none, and an hour of ticks compared with one in which every tick reads everything.
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "Benchmarks/Crowd.h"
#include "Benchmarks/SideBySide.h"
#include "Host/AgentsFile.h"
#include "Host/LookFiles.h"
#include "Host/Observer.h"
#include "Host/Pace.h"
#include "Host/SystemTools.h"
#include "Host/linux/LinuxTools.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/WatchingFileProbe.h"

namespace {

using namespace wakelatch;
namespace fs = std::filesystem;

/// A home with session files that are two hours old.
class Home {
 public:
  explicit Home(int files) {
    for (int i = 0; i < files; ++i) {
      char name[64];
      std::snprintf(name, sizeof name, "p%d/%08x-77aa-4c1b-9a5e-0123456789ab.jsonl", i / 100, i);
      const fs::path file = projects() / name;
      if (i % 100 == 0) fs::create_directories(file.parent_path());
      std::ofstream(file) << "{}\n";
      fs::last_write_time(file, fs::file_time_type::clock::now() - std::chrono::hours(2));
    }
  }
  const fs::path& path() const { return directory_.path(); }
  fs::path projects() const { return path() / ".claude/projects"; }

 private:
  TemporaryDirectory directory_;
};

/// Returns a process table that was read once.
class OldListing : public CommandRunning {
 public:
  explicit OldListing(CommandRunning& machine) : machine_(machine) {}
  CommandResult run(const ShellCommand& command) override {
    std::string key = command.executable + " " + command.arguments.back();
    const auto known = answers_.find(key);
    if (known != answers_.end()) return known->second;
    return answers_[std::move(key)] = machine_.run(command);
  }

 private:
  CommandRunning& machine_;
  std::map<std::string, CommandResult> answers_;
};

/// Looks at a home as a watch does.
class Watch {
 public:
  Watch(const FileActivityProbing& probe, CommandRunning& tools)
      : files_(probe), turns_(files_), observer_(sources(tools), profiles()) {}

  void look() { observer_.look({}, platform::now()); }
  void setQuiet() { observer_.setQuiet(true); }

 private:
  static AgentProfiles profiles() {
    return host::loadAgents({host::installedAgentsFile()}).profiles;
  }
  host::Sources sources(CommandRunning& tools) {
    return {
        [this] { files_.beginLook(); },     tools, platform::systemAccessibility(), files_, turns_,
        [] { return host::thermalState(); }};
  }

  host::LookFiles files_;
  TurnReader turns_;
  host::Observer observer_;
};

/// Own CPU milliseconds of an action, the mean of several runs.
template <class Work>
bench::Side costOf(const Work& work) {
  return [work] {
    constexpr int times = 5;
    const double before = bench::cpuMilliseconds(RUSAGE_SELF);
    for (int i = 0; i < times; ++i) work();
    return (bench::cpuMilliseconds(RUSAGE_SELF) - before) / times;
  };
}

/// CPU seconds per hour of ticks that cost this many milliseconds each.
double hourOf(double milliseconds, double interval) {
  return milliseconds / 1000 * 3600 / interval;
}

/// CPU milliseconds of a tick.
struct Parts {
  double processes, files, rest;

  void print(const char* what, double interval) const {
    std::printf("  %s: %.2f, %.2f, %.2f\n", what, hourOf(processes, interval),
                hourOf(files, interval), hourOf(rest, interval));
  }
};

}  // namespace

int main() {
  host::LinuxTools tools;
  const Home none(0), some(20'000), many(200'000);
  const WatchingFileProbe noneWatched(none.path(), 12), someWatched(some.path(), 12),
      manyWatched(many.path(), 12);
  const FileActivityProbe someWalked(some.path(), 12);
  Watch noFiles(noneWatched, tools), someFiles(someWatched, tools), manyFiles(manyWatched, tools);
  const auto look = [](Watch& watch) { return costOf([&watch] { watch.look(); }); };
  const char* unit = "ms of CPU";
  bench::compare("tick with 20,000 session files against none", unit, look(someFiles),
                 look(noFiles), 1.1);
  bench::compare("the same, one file appended to each tick", unit, costOf([&] {
                   const std::string name = "p7/000002bc-77aa-4c1b-9a5e-0123456789ab.jsonl";
                   std::ofstream(some.projects() / name, std::ios::app) << "{}\n";
                   someFiles.look();
                 }),
                 look(noFiles), 1.2);
  bench::compare("tick with 200,000 session files against none", unit, look(manyFiles),
                 look(noFiles), 1.1);

  // The comparison: every file of the home and of every process is read in each tick.
  const bench::Crowd crowd(600);
  OldListing listing(tools);
  Watch walking(someWalked, listing), deciding(noneWatched, listing);
  walking.look(), deciding.look();
  const auto list = costOf([&] {
    for (const char* columns : {"pid=,ppid=,pcpu=,comm=", "pid=,args="}) {
      tools.run({"/bin/ps", {"-axo", columns}});
    }
  });
  const auto read = costOf([] { bench::readEveryProcess(); });
  const auto walk = costOf([&] { walking.look(); });
  const auto rest = costOf([&] { deciding.look(); });
  const Parts before = {read(), walk() - rest(), rest()};
  const Parts now = {list(), costOf([&] { someFiles.look(); })() - list() - rest(), rest()};
  std::this_thread::sleep_for(std::chrono::seconds(31));  // until none of the crowd is young
  tools.setQuiet(true);
  someFiles.setQuiet();
  const auto quietLook = look(someFiles);
  const Parts quiet = {list(), quietLook() - list() - rest(), rest()};

  constexpr double interval = 2;
  std::printf("s of CPU an hour, 600 processes, 20,000 files: processes, files, all else\n");
  before.print("everything read every 2 s", interval);
  now.print("every 2 s", interval);
  quiet.print("quiet, every 8 s", host::Pace::quietSeconds);
  bench::compare(
      "an hour without agents, 600 processes, 20,000 files", "s of CPU",
      [&] { return hourOf(quietLook(), host::Pace::quietSeconds); },
      [&] { return hourOf(read() + walk(), interval); }, 0.02, 7);
}
