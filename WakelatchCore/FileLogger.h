// The append-only log file shared by all components.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "Platform/SerialQueue.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Appends one line "[2025-03-01T14:05:09Z] message" per call to a text file. Any thread may log;
/// the caller never waits for the disk. A queue of the logger's own writes the lines in the order
/// of the calls. It opens and closes the file for each line, and creates the file and its directory
/// with the default modes if they are missing. The file may belong to another user if it is
/// writable. A line that cannot be written is lost without a report.
class FileLogger {
 public:
  /// Touches no file.
  /// @param logURL  absent: "Library/Logs/Wakelatch.log" in the user's home directory
  explicit FileLogger(std::optional<std::filesystem::path> logURL = std::nullopt);
  /// Waits until every line logged so far is written or lost, but at most 2 to 4 seconds while the
  /// disk hangs: lines that are left are written when it recovers, if the process still runs then.
  /// Does not wait in a fork of the process, which cannot write them.
  ~FileLogger() = default;
  FileLogger(const FileLogger&) = delete;
  FileLogger& operator=(const FileLogger&) = delete;

  /// The logger of the whole process, with the default file; made on first use and never destroyed,
  /// so destructors of static objects may log. At exit, in the order of static destruction, the
  /// process waits for the lines logged until then, however long the disk takes; lines logged later
  /// may be lost.
  static FileLogger& shared();

  /// The file, whether or not it exists yet.
  const std::filesystem::path& logURL() const { return *logURL_; }

  /// Queues a line with the present time and returns at once. A message with line breaks gives
  /// several lines.
  void log(std::string_view message) noexcept;

 private:
  const std::shared_ptr<const std::filesystem::path> logURL_;  ///< shared with lines in the queue
  platform::SerialQueue queue_{"Wakelatch.FileLogger"};
};

}  // namespace wakelatch
#pragma GCC visibility pop
