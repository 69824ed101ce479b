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

/// Lists the processes under /proc by ascending id, one line each; a line feed in a name or an
/// argument is written as "\012". Processes that end during a listing are left out. Callable from
/// several threads at once. Throws only when memory is short; logs nothing.
///
/// A process that has not run since the previous listing has not changed, except for its parent.
/// Its CPU clock shows whether it has run, at much less cost than reading its files. If `proc`
/// shows another process id namespace (another container's), these clocks cannot be used: then
/// every process's status is read, and its names and arguments if the status shows another program
/// or CPU use. To be safe, each listing reads one fifth of the processes in any case, in turn: the
/// status of those that have not run, and the names and arguments too of the others.
class ProcessTable {
 public:
  /// The shortest time over which CPU use is measured; the kernel counts it in steps of 0.01 s.
  static constexpr double sampleSeconds = 0.2;

  /// How long a process counts as young: it may not have executed its program yet.
  static constexpr double youngSeconds = 30;

  explicit ProcessTable(const std::filesystem::path& proc);

  /// Makes the following listings cheaper, but less current, or exact again. Quiet listings still
  /// name exactly the processes that exist, and read new and young ones. Of the others they check
  /// one fifth, in turn, and read those that have run; for the rest they repeat the last data with
  /// a CPU use of 0.0. So a change in an old process is seen within five listings. The first exact
  /// listing afterwards gives the CPU use since each process was last checked. The very first
  /// listing is never quiet. From any thread; does not block.
  void setQuiet(bool isQuiet) { isQuiet_ = isQuiet; }

  /// `pid=,ppid=,pcpu=,comm=`: CPU use in percent of one core since the previous call, and the
  /// program by programName(). Blocks until `sampleSeconds` have passed since the previous call;
  /// the first call blocks that long.
  std::string usageListing();

  /// `pid=,args=`: the arguments separated by single spaces, or the name of a process without any.
  /// Directly after usageListing() it shows the same moment.
  std::string argumentListing();

  /// The program as a person would name it, the first of these that exists:
  ///
  /// 1. the path of the script, as it was started, if the kernel started an interpreter for it;
  /// 2. the title that the process gave itself, if it is in its arguments too;
  /// 3. the executable's path;
  /// 4. the kernel's name for the process.
  ///
  /// "<defunct>" for a process that has exited and waits for its parent; absent if there is no
  /// process `pid`.
  std::optional<std::string> programName(std::string_view pid) const;

 private:
  using Clock = std::chrono::steady_clock;

  /// The content of /proc/PID/stat.
  struct Status {
    std::string name;  ///< the kernel's, at most 15 bytes
    pid_t parent = 0;
    bool hasExited = false;        ///< waits for its parent
    std::uint64_t startTicks = 0;  ///< since boot; distinguishes processes with the same id
    std::uint64_t imageStamp = 0;  ///< from addresses of stack and arguments, which change when it
                                   ///< executes a program; 0 if this user may not see them
    std::uint64_t cpuTicks = 0;
    Clock::time_point readAt = {};

    /// Whether nothing in the status has changed since `before`, apart from the parent.
    bool isAs(const Status& before) const {
      return startTicks == before.startTicks && cpuTicks == before.cpuTicks &&
             imageStamp == before.imageStamp && hasExited == before.hasExited &&
             name == before.name;
    }
  };
  struct Process {
    pid_t pid = 0;
    ino_t inode = 0;
    /// Total CPU time, read before everything else, so that CPU use during the reading shows in the
    /// next sample.
    std::optional<std::chrono::nanoseconds> cpuTime;
    Status status;
    double cpuPercent = 0;           ///< of one core, since the previous sample
    std::string program, arguments;  ///< each in one line; empty if it has ended meanwhile
  };
  struct Sample {
    Clock::time_point begun = {};
    unsigned round = 0;              ///< which fifth was read in any case
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
