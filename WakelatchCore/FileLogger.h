// The append-only log file shared by all components.
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Mutex.h"
#include "Platform/SerialQueue.h"

#pragma GCC visibility push(default)
namespace wakelatch {

/// Appends one line "[2025-03-01T14:05:09Z] message" per call to a text file. Any thread may log;
/// the caller never waits for the disk. Lines are written in the order of the calls, by a queue of
/// the logger's own; the file is opened and closed for each, and made, for its user alone, with
/// its folder where they are missing. A line that cannot be written is lost without a word.
class FileLogger {
 public:
  /// Touches no file.
  /// @param logURL  absent: "Library/Logs/Wakelatch.log" in the user's home folder
  explicit FileLogger(std::optional<std::filesystem::path> logURL = std::nullopt);
  /// Waits until every line logged so far is written or lost. Not in a fork of the process.
  ~FileLogger() = default;
  FileLogger(const FileLogger&) = delete;
  FileLogger& operator=(const FileLogger&) = delete;

  /// The logger of the whole process, at the default place; made on first use and never destroyed,
  /// so destructors of static objects may log. Lines logged before its first use is undone at exit
  /// are written; those logged later still may be, as long as the process lives.
  static FileLogger& shared();

  /// The file, whether or not it exists yet.
  const std::filesystem::path& logURL() const { return logURL_; }

  /// Dates the line now and returns at once. Never fails. A message with line breaks spans lines.
  void log(std::string_view message) noexcept;

 private:
  /// Lines one after another, and where each ends.
  struct Lines {
    std::string text;
    std::vector<std::size_t> ends;
  };
  void writeWaitingLines();

  const std::filesystem::path logURL_;
  platform::Mutex mutex_;
  /// The queue has a task to write them while there are any.
  Lines waiting_ WAKELATCH_GUARDED_BY(mutex_);
  platform::SerialQueue queue_{"Wakelatch.FileLogger"};  // last, so it ends while the rest lives
};

}  // namespace wakelatch
#pragma GCC visibility pop
