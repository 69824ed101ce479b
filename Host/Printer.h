// Standard output and standard error of a watch, written from a thread of its own: a reader that
// stops reading (a full pipe, Ctrl-S, a stalled connection) holds up nobody else.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Platform/Descriptor.h"
#include "Platform/Mutex.h"

namespace wakelatch::host {

/// What is given to it is written in order. What waits for too long is dropped, the oldest first,
/// so that the last line shown is never older than the last one dropped; how much is told once
/// reading goes on. All but the destructor may be called from any thread, and none of that blocks
/// unless it says so.
class Printer {
 public:
  /// Lines and notices that may wait to be written, of each kind.
  static constexpr std::size_t room = 8;

  /// @param closed  told on the printer's thread, once, that nobody will read standard output again
  explicit Printer(std::function<void()> closed);
  /// Waits for a write that is under way: call finish() before, and end the process where that
  /// fails.
  ~Printer();
  Printer(const Printer&) = delete;
  Printer& operator=(const Printer&) = delete;

  /// A line for standard output, without its line break.
  void line(std::string text);
  /// The content of a screen that is drawn in place on standard output. Replaces one that is not
  /// drawn yet; the same content again draws nothing.
  void screen(std::vector<std::string> lines);
  /// Draws the last content again, from the top of the terminal.
  void redraw();
  /// A sentence for standard error, in a line of its own.
  void notice(const std::string& text);

  /// Blocks until everything given so far is written, at most `seconds`. Returns whether it is.
  bool finish(double seconds);

 private:
  /// One of the two streams: what is being written, and how far that is.
  struct Stream {
    int fd;
    std::string text;
    std::size_t written = 0;
    bool isPending() const { return written < text.size(); }
  };

  void run();
  bool refill();
  void write(Stream& stream, short events);
  void noteFailure(Stream& stream, int error);
  void wake();

  const std::function<void()> closed_;
  platform::Pipe wakeUp_;

  // Of the thread alone.
  Stream out_, err_;
  std::vector<std::string> drawn_;  ///< what the screen shows
  bool failureTold_ = false;

  platform::Mutex mutex_;
  platform::Condition written_;
  std::deque<std::string> lines_ WAKELATCH_GUARDED_BY(mutex_);
  std::deque<std::string> notices_ WAKELATCH_GUARDED_BY(mutex_);
  std::int64_t droppedLines_ WAKELATCH_GUARDED_BY(mutex_) = 0;
  std::int64_t droppedNotices_ WAKELATCH_GUARDED_BY(mutex_) = 0;
  std::optional<std::vector<std::string>> screen_ WAKELATCH_GUARDED_BY(mutex_);  ///< to be drawn
  bool fromTheTop_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isIdle_ WAKELATCH_GUARDED_BY(mutex_) = true;
  bool isClosed_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isEnding_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace wakelatch::host
