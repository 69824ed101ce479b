// Makes a machine with many processes, and measures CPU time.
#pragma once

#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "Host/linux/KernelFiles.h"

extern char** environ;

namespace wakelatch::bench {

/// Idle processes, which end with this object.
class Crowd {
 public:
  explicit Crowd(std::size_t count) {
    char name[] = "sleep", seconds[] = "600";
    char* arguments[] = {name, seconds, nullptr};
    for (std::size_t i = 0; i < count; ++i) {
      pid_t child = 0;
      if (::posix_spawn(&child, "/bin/sleep", nullptr, nullptr, arguments, environ) != 0) {
        std::abort();
      }
      children_.push_back(child);
    }
  }
  ~Crowd() {
    for (const pid_t child : children_) ::kill(child, SIGKILL);
    for (const pid_t child : children_) ::waitpid(child, nullptr, 0);
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;

 private:
  std::vector<pid_t> children_;
};

/// Reads every file that complete listings of usage and arguments need.
inline std::size_t readEveryProcess() {
  namespace fs = std::filesystem;
  std::size_t size = 0;
  for (const bool isUsage : {true, false}) {
    for (const auto& entry : fs::directory_iterator("/proc")) {
      const fs::path& process = entry.path();
      if (std::isdigit(static_cast<unsigned char>(process.filename().native()[0])) == 0) continue;
      const auto content = [&](const char* name) {
        return host::kernelFile((process / name).native()).value_or("").size();
      };
      size += content("cmdline");
      if (!isUsage) continue;
      size += content("stat") + content("comm");
      std::error_code hidden;
      size += fs::read_symlink(process / "exe", hidden).native().size();
    }
  }
  return size;
}

/// CPU time until now, of RUSAGE_SELF or RUSAGE_CHILDREN.
inline double cpuMilliseconds(int who) {
  rusage usage{};
  ::getrusage(who, &usage);
  const auto milliseconds = [](timeval time) {
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
  };
  return milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
}

}  // namespace wakelatch::bench
