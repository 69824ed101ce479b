#include "Platform/Clock.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace wakelatch::platform {

Timestamp now() {
  return std::chrono::system_clock::now();
}

std::int64_t millisecondsSince1970(Timestamp time) {
  return std::llround(time.time_since_epoch().count() * 1000);
}

Timestamp fromMilliseconds(std::int64_t milliseconds) {
  return Timestamp(std::chrono::duration<double>(static_cast<double>(milliseconds) / 1000));
}

std::string iso8601(Timestamp time) {
  using namespace std::chrono;
  // std::chrono::year holds -32767 to 32767; comparing this way round is false for NaN.
  constexpr double limit = 9.4e11;
  const double wholeSeconds = std::floor(time.time_since_epoch().count());
  if (!(wholeSeconds > -limit && wholeSeconds < limit)) return "-";

  const sys_seconds instant{seconds{static_cast<std::int64_t>(wholeSeconds)}};
  const sys_days day = floor<days>(instant);
  const year_month_day date{day};
  const hh_mm_ss<seconds> clock{instant - day};
  const int year = static_cast<int>(date.year());
  char text[48];
  std::snprintf(text, sizeof text, year < 0 || year > 9999 ? "%+05d" : "%04d", year);
  std::string result = text;
  std::snprintf(text, sizeof text, "-%02u-%02uT%02d:%02d:%02dZ",
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
                static_cast<int>(clock.seconds().count()));
  return result + text;
}

std::string iso8601Milliseconds(Timestamp time) {
  std::string result = iso8601(time);
  if (result == "-") return result;
  const double seconds = time.time_since_epoch().count();
  char fraction[8];
  std::snprintf(fraction, sizeof fraction, ".%03dZ",
                static_cast<int>((seconds - std::floor(seconds)) * 1000));
  return result.replace(result.size() - 1, 1, fraction);
}

std::optional<Timestamp> parseIso8601(std::string_view text) {
  constexpr std::string_view pattern = "dddd-dd-ddTdd:dd:ddZ";
  if (text.size() != pattern.size()) return std::nullopt;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool matches =
        pattern[i] == 'd' ? text[i] >= '0' && text[i] <= '9' : text[i] == pattern[i];
    if (!matches) return std::nullopt;
  }
  const auto field = [text](std::size_t start, std::size_t length) {
    int value = 0;
    for (const char c : text.substr(start, length)) value = value * 10 + (c - '0');
    return value;
  };
  using namespace std::chrono;
  const year_month_day date{year{field(0, 4)}, month{static_cast<unsigned>(field(5, 2))},
                            day{static_cast<unsigned>(field(8, 2))}};
  const int hour = field(11, 2), minute = field(14, 2), second = field(17, 2);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  return Timestamp{sys_days{date} + hours{hour} + minutes{minute} + seconds{second}};
}

std::optional<Timestamp> parseIso8601Fraction(std::string_view text) {
  constexpr std::size_t point = 19, mostDigits = 9;  // where a fraction begins, and how long it is
  if (text.size() <= point || text[point] != '.') return parseIso8601(text);
  const std::string_view digits = text.substr(point + 1, text.size() - point - 2);
  const auto whole = parseIso8601(std::string(text.substr(0, point)) + text.back());
  if (!whole || digits.empty() || digits.size() > mostDigits) return std::nullopt;
  double value = 0, unit = 1;
  for (const char digit : digits) {
    if (digit < '0' || digit > '9') return std::nullopt;
    value = value * 10 + (digit - '0');
    unit *= 10;
  }
  return after(*whole, value / unit);
}

}  // namespace wakelatch::platform
