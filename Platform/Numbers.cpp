#include "Platform/Numbers.h"

#include <charconv>
#include <cmath>
#include <limits>

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
  double digits = 0, scale = 1;  // the value is digits / scale; exact up to 15 digits
  bool isFraction = false, hasDigits = false;
  for (const char c : field) {
    if (c == '.' && !isFraction) {
      isFraction = true;
      continue;
    }
    if (!isDigit(c)) return std::nullopt;
    hasDigits = true;
    digits = digits * 10 + (c - '0');
    if (isFraction) scale *= 10;
  }
  const double value = sign * digits / scale;
  if (!hasDigits || !std::isfinite(value)) return std::nullopt;
  return value;
}

}  // namespace wakelatch::platform
