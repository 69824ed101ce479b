// How often a person may be asked for the administrator's password.
#pragma once

#include <optional>

#include "Platform/Clock.h"

namespace wakelatch::host {

/// Whether `seconds` have passed since `start`; a clock that was set back counts as passed.
inline bool isOver(Timestamp start, double seconds, Timestamp now) {
  const double elapsed = secondsBetween(start, now);
  return elapsed < 0 || elapsed >= seconds;
}

/// Remembers that a prompt was refused, whatever happens in between.
class PromptPause {
 public:
  /// A refused prompt is not shown again for this long.
  static constexpr double seconds = 15 * 60;

  bool mayAsk(Timestamp now) const { return hasPassed(refusedAt_, now); }
  /// Danger need not wait for the end of a pause, but only once in as long a time.
  bool mayAskInDanger(Timestamp now) const { return mayAsk(now) || hasPassed(inDangerAt_, now); }

  void refused(Timestamp now) { refusedAt_ = now; }
  void askedInDanger(Timestamp now) { inDangerAt_ = now; }
  void forget() { refusedAt_.reset(); }

 private:
  static bool hasPassed(const std::optional<Timestamp>& start, Timestamp now) {
    return !start || isOver(*start, seconds, now);
  }

  std::optional<Timestamp> refusedAt_, inDangerAt_;
};

}  // namespace wakelatch::host
