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
/// the caller never waits for the disk. Lines are written in the order of the calls, by a queue of
/// the logger's own; the file is opened and closed for each, and made with its directory where they
/// are missing, with the modes that the umask leaves. Any file that this user may write will do,
/// whoever owns it. A line that cannot be written is lost without a word.
class FileLogger {
 public:
  /// Touches no file.
  /// @param logURL  absent: "Library/Logs/Wakelatch.log" in the user's home directory
  explicit FileLogger(std::optional<std::filesystem::path> logURL = std::nullopt);
  /// Waits until every line logged so far is written or lost. Should the disk hang, for 2 to 4
  /// seconds: they are written once it goes on, if the process still lives then. In a fork of the
  /// process, which cannot write them, it waits for nothing.
  ~FileLogger() = default;
  FileLogger(const FileLogger&) = delete;
  FileLogger& operator=(const FileLogger&) = delete;

  /// The logger of the whole process, at the default place; made on first use and never destroyed,
  /// so destructors of static objects may log. Lines logged before its first use is undone at exit
  /// are written, however long the disk takes; those logged later still may be, as long as the
  /// process lives.
  static FileLogger& shared();

  /// The file, whether or not it exists yet.
  const std::filesystem::path& logURL() const { return *logURL_; }

  /// Dates the line now and returns at once. Never fails. A message with line breaks spans lines.
  void log(std::string_view message) noexcept;

 private:
  const std::shared_ptr<const std::filesystem::path> logURL_;  ///< shared with lines in the queue
  platform::SerialQueue queue_{"Wakelatch.FileLogger"};
};

}  // namespace wakelatch
#pragma GCC visibility pop
