// The file of a recording, written from a thread of its own: a disk that is full or hangs ends the
// recording, never the watch.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>

#include "Platform/Descriptor.h"
#include "Platform/Mutex.h"

namespace wakelatch::host {

/// Takes lines from any thread and never blocks, but for finish().
class TraceFile {
 public:
  /// What may wait for a disk that hangs.
  static constexpr std::size_t maxWaitingBytes = 4U << 20;

  /// Makes the file, for its user alone, and may wait for the disk. Throws std::system_error naming
  /// the file: when it exists, too.
  static platform::Descriptor create(const std::filesystem::path& file);

  /// @param file   as created
  /// @param ended  told once, on any thread, why the recording ended before its time
  TraceFile(platform::Descriptor file, std::function<void(const std::string&)> ended);
  /// Waits for a write that is under way: call finish() before, and end the process where that
  /// fails.
  ~TraceFile();
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;

  /// The text with a line end.
  void line(std::string text);
  /// Whether lines are still taken.
  bool isOpen();
  /// Takes nothing any more, and tells why unless that was told before.
  void end(const std::string& why);

  /// Blocks until everything given so far is written or lost, at most `seconds`. Returns whether it
  /// is.
  bool finish(double seconds);

 private:
  void run();

  const platform::Descriptor file_;
  const std::function<void(const std::string&)> ended_;
  platform::Mutex mutex_;
  platform::Condition wake_, written_;
  std::string waiting_ WAKELATCH_GUARDED_BY(mutex_);
  bool isBusy_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isOver_ WAKELATCH_GUARDED_BY(mutex_) = false;  ///< nothing is taken any more
  bool isEnding_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace wakelatch::host
