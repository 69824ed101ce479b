// Directories that tests may fill: gone when the test ends.
#pragma once

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <stdexcept>
#include <string>

namespace wakelatch {

inline void writeFile(const std::filesystem::path& file, const std::string& content) {
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file) << content;
}

class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string pattern = (std::filesystem::temp_directory_path() / "wakelatch.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp " + pattern);
    path_ = std::filesystem::canonical(pattern);
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

/// A temporary directory that is the user's home while it lives.
class TemporaryHome : public TemporaryDirectory {
 public:
  TemporaryHome() {
    if (const char* home = ::getenv("HOME")) before_ = home;
    ::setenv("HOME", path().c_str(), 1);
    ::setenv("CFFIXED_USER_HOME", path().c_str(), 1);  // macOS goes by this
  }
  ~TemporaryHome() { before_ ? ::setenv("HOME", before_->c_str(), 1) : ::unsetenv("HOME"); }

 private:
  std::optional<std::string> before_;
};

}  // namespace wakelatch
