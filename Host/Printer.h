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

/// Writes in the order of the calls. When more than `capacity` lines wait, the oldest are dropped;
/// their number is printed once somebody reads again. All but the destructor may be called from any
/// thread, and none of that blocks unless it says so.
class Printer {
 public:
  /// How many lines, and how many notices, may wait to be written.
  static constexpr std::size_t capacity = 8;

  /// @param closed  told on the printer's thread, once, that nobody will read standard output again
  explicit Printer(std::function<void()> closed);
  /// Waits for a write that is under way, perhaps for ever: call finish() first, and end the
  /// process if that fails.
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

  /// What waits for a stream.
  struct Queue {
    std::deque<std::string> texts;
    std::int64_t droppedCount = 0;
    void push(std::string text);
  };

  void changed() WAKELATCH_REQUIRES(mutex_);
  void run();
  bool refill();
  void write(Stream& stream, short events);
  void noteFailure(Stream& stream, int error);

  const std::function<void()> closed_;
  platform::Pipe wakeUp_;

  // Used by the thread alone.
  Stream out_, err_;
  std::vector<std::string> drawn_;  ///< what the screen shows
  bool failureTold_ = false;

  platform::Mutex mutex_;
  platform::Condition written_;
  Queue lines_ WAKELATCH_GUARDED_BY(mutex_), notices_ WAKELATCH_GUARDED_BY(mutex_);
  std::optional<std::vector<std::string>> screen_ WAKELATCH_GUARDED_BY(mutex_);  ///< to be drawn
  bool fromTheTop_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isIdle_ WAKELATCH_GUARDED_BY(mutex_) = true;
  bool isClosed_ WAKELATCH_GUARDED_BY(mutex_) = false;
  bool isEnding_ WAKELATCH_GUARDED_BY(mutex_) = false;
  std::thread thread_;
};

}  // namespace wakelatch::host
