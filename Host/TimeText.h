// Durations and instants as people read and write them. Pure functions, but for the local time
// zone.
#pragma once

#include <string>

#include "Platform/Clock.h"

namespace wakelatch::host {

/// A duration that can be drawn and added up: `seconds`, but 0 when negative or not a number, and
/// at most 10,000 years.
double sane(double seconds);

/// "45s", "12m", "3h 05m", cut to the last unit shown.
std::string durationText(double seconds);
/// "31 s", rounded to whole seconds.
std::string secondsText(double seconds);
/// "4:12", "1:00:05", rounded up to whole seconds; a negative duration counts as 0.
std::string countdownText(double seconds);

/// "14:05:09", the local time; "--:--:--" for an instant that no calendar can hold.
std::string localTime(Timestamp time);
/// "2025-03-01 14:05" in local time; "-" for an instant that no calendar can hold.
std::string localDateAndTime(Timestamp time);
///@{
/// "14 Mar", and "14 Mar 2025", for a day key; any other text as it is.
std::string dayText(const std::string& dayKey);
std::string dayAndYearText(const std::string& dayKey);
///@}

/// The first moment from `start` on that `text` names: "03:12" or "03:12:30" on local clocks, or an
/// instant such as "2026-11-23T03:12:30Z" or "…30.250Z", whenever that is. What is given to the
/// minute or the second means its last millisecond. Throws std::runtime_error saying what is
/// wanted.
Timestamp momentAfter(Timestamp start, const std::string& text);

}  // namespace wakelatch::host
