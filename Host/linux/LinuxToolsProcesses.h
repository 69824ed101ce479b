// The process table in the formats of `ps`.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Mutex.h"

namespace wakelatch::host {

/// Lists the processes under /proc in the order of their ids, one line each: a line feed in a name
/// or an argument is written as "\012". Processes that end during a listing are left out. Safe from
/// several threads at once. Nothing is thrown but for want of memory, nothing logged.
///
/// A process that has not run since the previous listing has not changed, but for its parent. Its
/// CPU clock counts in nanoseconds and tells that for much less than reading its files costs. In a
/// /proc of other process ids, such as another container's, there are no clocks: there every
/// process's status is read, and names and arguments when it shows another program or CPU use. In
/// any case a fifth of the processes is read as a whole each time, another one each time.
class ProcessTable {
 public:
  /// The shortest time over which CPU use is told; the kernel counts it in steps of 0.01 s.
  static constexpr double sampleSeconds = 0.2;

  /// How long a process is young: it may still be about to execute the program it was started for.
  static constexpr double youngSeconds = 30;

  explicit ProcessTable(const std::filesystem::path& proc);

  /// Whether listings are to be quiet from now on: less is looked at while nothing depends on it.
  /// Which processes there are stays exact, and new and young ones are read as ever. Of the others
  /// a fifth is looked at, another one each time, and read if it has run; of the rest the listing
  /// repeats what it knew, with a CPU use of 0.0. So what an old process becomes is seen within
  /// five listings. Listings after the quiet look at all again; the first tells the CPU use since
  /// each process was looked at last. The very first listing is never quiet. From any thread; waits
  /// for nothing.
  void setQuiet(bool isQuiet) { isQuiet_ = isQuiet; }

  /// `pid=,ppid=,pcpu=,comm=`: CPU use in percent of one core since the previous call, and the
  /// program's name as programName() tells it. The first call, and one that follows the previous
  /// sooner than `sampleSeconds`, waits until that time has passed.
  std::string usageListing();

  /// `pid=,args=`: the arguments separated by single spaces; the name of a process without any.
  /// Right after usageListing() it is of the same moment.
  std::string argumentListing();

  /// The program that a person would name, the first of these that there is:
  ///
  /// 1. the script, when the kernel started an interpreter for one: its path as it was started;
  /// 2. the title that the process gave itself, when its arguments bear it too;
  /// 3. the executable's path;
  /// 4. the kernel's name for the process.
  ///
  /// "<defunct>" for a process that has exited and waits for its parent; nothing when `pid` is no
  /// process.
  std::optional<std::string> programName(std::string_view pid) const;

 private:
  using Clock = std::chrono::steady_clock;

  /// What /proc/PID/stat tells.
  struct Status {
    std::string name;  ///< the kernel's, at most 15 bytes
    pid_t parent = 0;
    bool hasExited = false;        ///< waits for its parent to notice
    std::uint64_t startTicks = 0;  ///< since boot; tells apart processes that had the same id
    std::uint64_t imageStamp = 0;  ///< where its stack and arguments are: another place when it
                                   ///< has executed a program; 0 when that is kept from this user
    std::uint64_t cpuTicks = 0;
    Clock::time_point readAt = {};

    /// Whether it has done nothing since `before` that shows here.
    bool isAs(const Status& before) const {
      return startTicks == before.startTicks && cpuTicks == before.cpuTicks &&
             imageStamp == before.imageStamp && hasExited == before.hasExited &&
             name == before.name;
    }
  };
  struct Process {
    pid_t pid = 0;
    ino_t inode = 0;
    /// All that it has used, told before anything else was read: what it did meanwhile counts
    /// later.
    std::optional<std::chrono::nanoseconds> cpuTime;
    Status status;
    double cpuPercent = 0;           ///< of one core, since the sample before
    std::string program, arguments;  ///< each in one line; empty when it has gone meanwhile
  };
  struct Sample {
    Clock::time_point begun = {};
    unsigned round = 0;              ///< which fifth is looked at for certain
    std::vector<Process> processes;  ///< in the order of their ids
  };

  static std::optional<Status> statusOf(const std::string& directory);
  static double cpuPercent(const Status& now, const Status* before, Clock::time_point since);
  static void readNames(Process& process, const std::string& directory);
  void findParents(Sample& sample) const;
  Sample takeSample(Sample previous, bool isQuiet) const;

  const std::string proc_;  ///< with a slash at the end
  std::atomic<bool> isQuiet_ = false;
  platform::Mutex listing_;  ///< held for a whole listing, its wait included
  std::optional<Sample> newest_ WAKELATCH_GUARDED_BY(listing_);
};

}  // namespace wakelatch::host
