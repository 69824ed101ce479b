// The usage statistics on disk.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>

#include "Platform/Clock.h"
#include "WakelatchCore/UsageMetrics.h"

namespace wakelatch::host {

/// A statistics file that does not decode; the text names the file, the key and what is wrong.
class DamagedUsage : public std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The statistics that `file` holds; nothing when there is no such file. Changes nothing on disk.
/// Throws std::system_error naming the file when it cannot be read, and DamagedUsage.
std::optional<UsageMetrics> loadUsage(const std::filesystem::path& file);

/// Keeps one process's statistics in their file. Used from one thread; every call may block on the
/// file system. Nothing is thrown: what goes wrong is told in a notice for the user.
class UsageStore {
 public:
  /// Touches no file.
  explicit UsageStore(std::filesystem::path file) : file_(std::move(file)) {}
  UsageStore(const UsageStore&) = delete;
  UsageStore& operator=(const UsageStore&) = delete;

  struct Opened {
    UsageMetrics metrics;
    std::string notice;  ///< empty: nothing to tell
  };
  /// What the file holds, or statistics that begin `now`. A file that does not decode is set aside
  /// beside itself; one that can be neither read nor set aside is left alone, and nothing is saved
  /// then. To be called once, by the process that holds the instance lock.
  Opened open(Timestamp now);

  /// Saves; a crash or power cut leaves the old or the new content whole. Returns what to tell the
  /// user when that fails, else an empty text.
  std::string save(const UsageMetrics& metrics);

 private:
  const std::filesystem::path file_;
  bool mayWrite_ = true;
};

}  // namespace wakelatch::host
