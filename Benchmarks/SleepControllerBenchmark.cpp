// The cost of a tick that finds the keep-awake process running in the wanted posture, compared with
// an uncontended mutex lock, both measured in one run.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <string>

#include "WakelatchCore/SleepController.h"

namespace {

/// Nanoseconds per call of `action`: the minimum of the means of batches.
template <class Action>
double nanosecondsFor(Action action) {
  constexpr int batches = 200, calls = 2000;
  double least = 1e18;
  for (int batch = 0; batch < batches; ++batch) {
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < calls; ++i) action();
    const std::chrono::duration<double, std::nano> taken = std::chrono::steady_clock::now() - start;
    least = std::min(least, taken.count() / calls);
  }
  return least;
}

/// No command runs in such a tick.
struct NoRunner : wakelatch::CommandRunning {
  wakelatch::CommandResult run(const wakelatch::ShellCommand&) override { std::abort(); }
};

}  // namespace

int main() {
  std::string home = (std::filesystem::temp_directory_path() / "wakelatch.XXXXXX").string();
  if (::mkdtemp(home.data()) == nullptr) return 1;
  ::setenv("HOME", home.c_str(), 1);
  const std::filesystem::path tool = home + "/caffeinate";
  std::FILE* script = std::fopen(tool.c_str(), "w");
  if (script == nullptr) return 1;
  std::fputs("#!/bin/sh\nexec sleep 600\n", script);
  std::fclose(script);
  std::filesystem::permissions(tool, std::filesystem::perms::owner_all);
  {
    NoRunner runner;
    wakelatch::FileLogger logger(home + "/log");
    wakelatch::SleepController controller(runner, runner, logger, tool.string());
    controller.enableSleepPrevention(/*allowLidClosed=*/false, /*letDisplaySleep=*/false);
    std::mutex mutex;
    const double lock = nanosecondsFor([&] { const std::lock_guard guard(mutex); });
    const double tick = nanosecondsFor([&] {
      controller.enableSleepPrevention(/*allowLidClosed=*/false, /*letDisplaySleep=*/false);
    });
    if (!controller.appliedLetDisplaySleep()) return 1;
    std::printf("tick %.0f ns (goal under 1000), mutex lock %.0f ns: ratio %.1f (or at most 3)\n",
                tick, lock, tick / lock);
  }
  std::filesystem::remove_all(home);
}
