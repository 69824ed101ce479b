// The process listings of a tick on Linux against reading every file of every process, on a machine
// with 600 processes or more of which one is new each time.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cctype>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "Benchmarks/Crowd.h"
#include "Benchmarks/SideBySide.h"
#include "Host/linux/LinuxToolsProcesses.h"
#include "Platform/Files.h"

namespace {

using namespace wakelatch;
namespace fs = std::filesystem;

std::size_t readEverything() {
  std::size_t size = 0;
  for (int listing = 0; listing < 2; ++listing) {  // usage, then arguments
    for (const auto& entry : fs::directory_iterator("/proc")) {
      if (std::isdigit(static_cast<unsigned char>(entry.path().filename().native()[0])) == 0)
        continue;
      const auto content = [&](const char* name) {
        try {
          return platform::readFile(entry.path() / name, platform::Owner::anybody).size();
        } catch (const std::system_error&) {
          return std::size_t{0};
        }
      };
      size += content("cmdline");
      if (listing == 1) continue;
      size += content("stat") + content("comm");
      std::error_code hidden;
      size += fs::read_symlink(entry.path() / "exe", hidden).native().size();
    }
  }
  return size;
}

}  // namespace

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
        [&] { return costOf([] { readEverything(); }); }, goal, 9);
  };
  compare("own CPU of a tick's process listings", 0.4);
  std::this_thread::sleep_for(std::chrono::duration<double>(host::ProcessTable::youngSeconds));
  table.setQuiet(true);
  compare("own CPU of a quiet tick's process listings", 0.1);
}
