// Durations and instants in words for people. Pure functions, but for the local time zone.
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
/// "14 Mar" or "14 Mar 2025" for a day key; any other text as it is.
std::string dayText(const std::string& dayKey, bool withYear);

}  // namespace wakelatch::host
