// The process listings of a tick on Linux, compared with reading every file of every process, on a
// machine with 600 processes or more, of which one is new each time.
#include <sys/resource.h>

#include <chrono>
#include <thread>

#include "Benchmarks/Crowd.h"
#include "Benchmarks/SideBySide.h"
#include "Host/linux/LinuxToolsProcesses.h"

using namespace wakelatch;

int main() {
  const bench::Crowd crowd(600);
  host::ProcessTable table("/proc");
  table.usageListing();
  const auto costOf = [](const auto& list) {
    constexpr int ticks = 5;
    double cost = 0;
    for (int i = 0; i < ticks; ++i) {
      const bench::Crowd newcomer(1);
      const double before = bench::cpuMilliseconds(RUSAGE_SELF);
      list();
      cost += bench::cpuMilliseconds(RUSAGE_SELF) - before;
    }
    return cost / ticks;
  };
  const auto compare = [&](const char* what, double goal) {
    bench::compare(
        what, "ms", [&] { return costOf([&] { table.usageListing(), table.argumentListing(); }); },
        [&] { return costOf([] { bench::readEveryProcess(); }); }, goal, 9);
  };
  compare("own CPU of a tick's process listings", 0.4);
  std::this_thread::sleep_for(std::chrono::duration<double>(host::ProcessTable::youngSeconds));
  table.setQuiet(true);
  compare("own CPU of a quiet tick's process listings", 0.15);
}
