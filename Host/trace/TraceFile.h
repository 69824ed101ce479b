// The file of a recording, written from a thread of its own: a disk that is full or hangs ends the
// recording, never the watch.
#pragma once

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

#include "Host/Worker.h"
#include "Platform/Descriptor.h"

namespace wakelatch::host {

/// Takes lines from any thread and never blocks, but for finish().
class TraceFile {
 public:
  /// How much may wait for a disk that hangs.
  static constexpr std::size_t maxWaitingBytes = 4U << 20;

  /// Makes the file, for its user alone, and may wait for the disk. Throws std::system_error naming
  /// the file: when it exists, too.
  static platform::Descriptor create(const std::filesystem::path& file);

  /// @param file   as created
  /// @param ended  told once, on any thread, why the recording ended before its time
  TraceFile(platform::Descriptor file, std::function<void(const std::string&)> ended);

  /// Writes the text with a line end.
  void line(const std::string& text);
  /// Whether lines are still taken.
  bool isOpen() const { return !isOver_; }
  /// Ends the recording: takes no more lines, and tells why unless that was told before.
  void end(const std::string& why);

  /// Blocks until everything given so far is written or lost, at most `seconds`. Returns whether it
  /// is.
  bool finish(double seconds) { return worker_.finish(seconds); }

 private:
  void write(const std::string& lines);

  const platform::Descriptor file_;
  const std::function<void(const std::string&)> ended_;
  std::atomic<bool> isOver_{false};  ///< nothing is taken any more
  Worker<std::string> worker_;
};

}  // namespace wakelatch::host
