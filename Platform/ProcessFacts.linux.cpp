#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <system_error>

#include "Platform/ProcessFacts.h"

namespace wakelatch::platform {
namespace {

double secondsOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

std::optional<Timestamp> processStart(std::int32_t pid) {
  const std::string process = "/proc/" + std::to_string(pid);
  struct stat status {};
  if (::stat(process.c_str(), &status) != 0) return std::nullopt;
  if (::geteuid() != 0 && status.st_uid != ::geteuid()) return std::nullopt;
  std::ifstream file(process + "/stat");
  std::string text;
  std::getline(file, text, '\0');
  const std::size_t nameEnd = text.rfind(')');  // the name may hold anything
  if (nameEnd == text.npos) return std::nullopt;
  std::size_t at = nameEnd;
  constexpr int fieldsBetween = 20;  // to the 22nd
  for (int i = 0; i < fieldsBetween && at != text.npos; ++i) at = text.find(' ', at + 1);
  if (at == text.npos) return std::nullopt;
  const double sinceBoot = static_cast<double>(std::strtoull(text.c_str() + at, nullptr, 10)) /
                           static_cast<double>(::sysconf(_SC_CLK_TCK));
  return Timestamp(std::chrono::duration<double>(secondsOf(CLOCK_REALTIME) -
                                                 secondsOf(CLOCK_BOOTTIME) + sinceBoot));
}

bool isConnected(std::int32_t pid) {
  namespace fs = std::filesystem;
  const fs::path process = fs::path("/proc") / std::to_string(pid);
  std::set<std::string> sockets;  // "socket:[12345]"
  std::error_code unreadable;
  fs::directory_iterator file(process / "fd", unreadable);
  while (!unreadable && file != fs::directory_iterator()) {
    std::error_code gone;
    const std::string target = fs::read_symlink(file->path(), gone).string();
    if (target.starts_with("socket:")) sockets.insert(target);
    file.increment(unreadable);
  }
  if (sockets.empty()) return false;
  for (const char* table : {"net/tcp", "net/tcp6"}) {
    std::ifstream lines(process / table);
    for (std::string line; std::getline(lines, line);) {
      // sl local remote state queues timer retransmits uid timeout inode
      std::istringstream fields(line);
      std::string skipped, state, inode;
      fields >> skipped >> skipped >> skipped >> state;
      for (int i = 0; i < 5; ++i) fields >> skipped;
      if (fields >> inode && state == "01" && sockets.contains("socket:[" + inode + "]")) {
        return true;
      }
    }
  }
  return false;
}

}  // namespace wakelatch::platform
