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

/// Remembers when a prompt was refused, and tells when the next one may be shown.
class PromptPause {
 public:
  /// A refused prompt is not shown again for this long.
  static constexpr double seconds = 15 * 60;
  /// Where nobody is asked, what failed is tried again after this long.
  static constexpr double unattendedSeconds = 60;

  /// A prompt that we closed ourselves is not shown again for this long: danger may come and go.
  static constexpr double closedSeconds = 60;

  /// @param asksPerson  whether a prompt disturbs somebody
  explicit PromptPause(bool asksPerson) : pause_(asksPerson ? seconds : unattendedSeconds) {}

  bool mayAsk(Timestamp now) const {
    return hasPassed(refusedAt_, pause_, now) && hasPassed(closedAt_, closedSeconds, now);
  }
  /// As mayAsk(), but in danger one prompt may be shown before the pause is over.
  bool mayAskInDanger(Timestamp now) const {
    return mayAsk(now) || hasPassed(inDangerAt_, pause_, now);
  }

  void refused(Timestamp now) { refusedAt_ = now; }
  void closed(Timestamp now) { closedAt_ = now; }
  void askedInDanger(Timestamp now) { inDangerAt_ = now; }
  void forget() {
    refusedAt_.reset();
    closedAt_.reset();
  }

 private:
  static bool hasPassed(const std::optional<Timestamp>& start, double length, Timestamp now) {
    return !start || isOver(*start, length, now);
  }

  const double pause_;
  std::optional<Timestamp> refusedAt_, closedAt_, inDangerAt_;
};

}  // namespace wakelatch::host
