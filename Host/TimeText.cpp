#include "Host/TimeText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "Platform/Calendar.h"

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

std::string dayText(const std::string& dayKey, bool withYear) {
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
  std::string text = std::to_string(day) + " " + std::string(months[month - 1]);
  if (withYear) text += " " + dayKey.substr(0, 4);
  return text;
}

}  // namespace wakelatch::host
