#include "Host/TimeText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "Platform/Calendar.h"
#include "Platform/Numbers.h"
#include "Platform/Split.h"

namespace wakelatch::host {
namespace {

/// "2025-03-01T14:05:09Z" with the local time in it; "-" for what no calendar can hold.
std::string localIso8601(Timestamp time) {
  return platform::iso8601(time + platform::localOffset(time));
}

}  // namespace

double sane(double seconds) {
  constexpr double longest = 10000 * 365.25 * 86400;
  return seconds > 0 ? std::min(seconds, longest) : 0;  // 0 also when not a number
}

std::string durationText(double seconds) {
  const auto whole = static_cast<long long>(sane(seconds));
  const long long minutes = whole / 60;
  if (minutes == 0) return std::to_string(whole) + "s";
  if (minutes < 60) return std::to_string(minutes) + "m";
  char text[48];
  std::snprintf(text, sizeof text, "%lldh %02lldm", minutes / 60, minutes % 60);
  return text;
}

std::string secondsText(double seconds) {
  char text[400];  // as long as any double
  std::snprintf(text, sizeof text, "%.0f s", seconds);
  return text;
}

std::string countdownText(double seconds) {
  const auto left = static_cast<long long>(std::ceil(sane(seconds)));
  char text[48];
  if (left < 3600) {
    std::snprintf(text, sizeof text, "%lld:%02lld", left / 60, left % 60);
  } else {
    std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", left / 3600, left / 60 % 60, left % 60);
  }
  return text;
}

std::string localTime(Timestamp time) {
  const std::string text = localIso8601(time);
  return text == "-" ? "--:--:--" : text.substr(text.find('T') + 1, 8);
}

std::string localDateAndTime(Timestamp time) {
  std::string text = localIso8601(time);
  if (text == "-") return text;
  text.resize(text.size() - std::string_view(":09Z").size());
  std::replace(text.begin(), text.end(), 'T', ' ');
  return text;
}

Timestamp momentAfter(Timestamp start, const std::string& text) {
  constexpr double restOfSecond = 0.999;  // ticks are told in whole seconds
  if (const auto instant = platform::parseIso8601(text)) return after(*instant, restOfSecond);
  if (const auto instant = platform::parseIso8601Fraction(text)) return *instant;
  std::vector<std::int32_t> parts;
  for (const std::string_view piece : platform::Split(text, ':')) {
    const auto number = platform::parseInt32(piece);
    parts.push_back(number && *number >= 0 && *number < (parts.empty() ? 24 : 60) ? *number : -1);
  }
  if (parts.size() == 2) parts.push_back(59);
  if (parts.size() != 3 || parts[0] < 0 || parts[1] < 0 || parts[2] < 0) {
    throw std::runtime_error("\"" + text +
                             "\" is no time: 03:12, 03:12:30 or 2026-11-23T03:12:30Z is wanted");
  }
  constexpr double day = 24 * 60 * 60;
  const auto offset = platform::localOffset(start);
  const double shown =
      std::fmod(start.time_since_epoch().count() + static_cast<double>(offset.count()) + day, day);
  const double wanted = 3600.0 * parts[0] + 60.0 * parts[1] + parts[2] + restOfSecond;
  return after(start, std::fmod(wanted - shown + day, day));
}

std::string dayText(const std::string& dayKey) {
  static constexpr std::array<std::string_view, 12> months{
      "Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  unsigned month = 0, day = 0;
  const auto read = [&](std::size_t start, unsigned& value) {
    const char* end = dayKey.data() + start + 2;
    return std::from_chars(dayKey.data() + start, end, value).ptr == end;
  };
  if (dayKey.size() != 10 || !read(5, month) || !read(8, day) || month < 1 || month > 12) {
    return dayKey;
  }
  return std::to_string(day) + " " + std::string(months[month - 1]);
}

std::string dayAndYearText(const std::string& dayKey) {
  const std::string text = dayText(dayKey);
  return text == dayKey ? text : text + " " + dayKey.substr(0, 4);
}

}  // namespace wakelatch::host
