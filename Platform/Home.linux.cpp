#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "Platform/Files.h"

namespace wakelatch::platform {

std::filesystem::path homeDirectory() {
  if (const char* home = std::getenv("HOME"); home != nullptr && home[0] == '/') return home;
  std::vector<char> buffer(16384);
  passwd entry{};
  passwd* found = nullptr;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr && found->pw_dir != nullptr && found->pw_dir[0] == '/') {
    return found->pw_dir;
  }
  return "/";
}

}  // namespace wakelatch::platform
