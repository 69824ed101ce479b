#include "Platform/Numbers.h"

#include <charconv>
#include <limits>
#include <locale>
#include <sstream>
#include <string>

namespace wakelatch::platform {
namespace {

/// Takes the sign off the field; whether it was a minus.
bool takeSign(std::string_view& field) {
  const bool isNegative = field.starts_with('-');
  if (isNegative || field.starts_with('+')) field.remove_prefix(1);
  return isNegative;
}

constexpr bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

/// Slow and right for any number of digits; `field` holds nothing but digits and a point.
std::optional<double> parseManyDigits(std::string_view field) {
  std::istringstream stream{std::string(field)};
  stream.imbue(std::locale::classic());
  double value = 0;
  if (!(stream >> value)) return std::nullopt;  // too large
  return value;
}

}  // namespace

std::optional<std::int32_t> parseInt32(std::string_view field) {
  const bool isNegative = takeSign(field);
  if (field.empty() || !isDigit(field.front())) return std::nullopt;
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  if (error != std::errc() || end != field.data() + field.size()) return std::nullopt;
  if (isNegative) value = -value;
  using Limits = std::numeric_limits<std::int32_t>;
  if (value < Limits::min() || value > Limits::max()) return std::nullopt;
  return static_cast<std::int32_t>(value);
}

std::optional<double> parseDecimal(std::string_view field) {
  const double sign = takeSign(field) ? -1 : 1;
  std::int64_t digits = 0, scale = 1;  // the value is digits / scale
  int digitCount = 0;
  bool isFraction = false;
  // Both stay below 2^53, so they are exact as doubles and their quotient is the nearest double.
  constexpr int maxExactDigits = 15;
  for (const char c : field) {
    if (c == '.' && !isFraction) {
      isFraction = true;
    } else if (!isDigit(c)) {
      return std::nullopt;
    } else if (++digitCount <= maxExactDigits) {
      digits = digits * 10 + (c - '0');
      if (isFraction) scale *= 10;
    }
  }
  if (digitCount == 0) return std::nullopt;
  if (digitCount <= maxExactDigits) {
    return sign * static_cast<double>(digits) / static_cast<double>(scale);
  }
  const auto value = parseManyDigits(field);
  return value ? std::optional(sign * *value) : std::nullopt;
}

}  // namespace wakelatch::platform
