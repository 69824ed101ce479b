// The real `wakelatch` program under test, in a home directory of its own.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/ChildProcess.h"
#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {

struct Outcome {
  std::int32_t status = -1;
  std::string out, err;
};

/// A started `wakelatch`; killed at the end of the test when it still runs.
struct HostProgram : platform::ChildProcess {
  explicit HostProgram(const std::vector<std::string>& arguments)
      : ChildProcess(WAKELATCH_HOST_PROGRAM, arguments, platform::ChildOutput::captured) {}

  /// How it ended; a program that does not end is killed, and the test fails.
  Outcome finish(double seconds = 20) {
    if (!awaitExit(seconds)) {
      ADD_FAILURE() << "wakelatch did not end";
      send(SIGKILL);
    }
    const std::int32_t status = reap().number;
    return {status, takeStandardOutput(), takeStandardError()};
  }
};

inline Outcome runHost(const std::vector<std::string>& arguments, double seconds = 20) {
  return HostProgram(arguments).finish(seconds);
}

/// Waits until `condition` holds, at most `seconds`.
inline bool eventually(const std::function<bool()>& condition, double seconds = 10) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

inline std::string contentOf(const std::filesystem::path& file) {
  return std::filesystem::exists(file) ? platform::readFile(file) : std::string();
}

/// An executable shell script.
inline void writeScript(const std::filesystem::path& file, const std::string& body) {
  writeFile(file, "#!/bin/sh\n" + body + "\n");
  std::filesystem::permissions(file, std::filesystem::perms::owner_all);
}

}  // namespace wakelatch::host
