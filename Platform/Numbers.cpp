#include "Platform/Numbers.h"

#include <locale.h>
#include <stdlib.h>
#ifdef __APPLE__
#include <xlocale.h>
#endif

#include <charconv>
#include <cmath>
#include <limits>
#include <string>

namespace wakelatch::platform {
namespace {

/// Takes the sign off the field; whether it was a minus.
bool takeSign(std::string_view& field) {
  const bool isNegative = field.starts_with('-');
  if (isNegative || field.starts_with('+')) field.remove_prefix(1);
  return isNegative;
}

constexpr std::string_view digits = "0123456789";

}  // namespace

std::optional<std::int32_t> parseInt32(std::string_view field) {
  const bool isNegative = takeSign(field);
  if (field.empty() || digits.find(field.front()) == digits.npos) return std::nullopt;
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(field.data(), field.data() + field.size(), value);
  if (error != std::errc() || end != field.data() + field.size()) return std::nullopt;
  if (isNegative) value = -value;
  using Limits = std::numeric_limits<std::int32_t>;
  if (value < Limits::min() || value > Limits::max()) return std::nullopt;
  return static_cast<std::int32_t>(value);
}

std::optional<double> parseDecimal(std::string_view field) {
  std::string_view number = field;
  takeSign(number);
  if (number.find_first_of(digits) == number.npos) return std::nullopt;
  if (number.find_first_not_of("0123456789.") != number.npos) return std::nullopt;
  if (number.find('.') != number.rfind('.')) return std::nullopt;
  // Not the process's locale, whose decimal sign may be a comma.
  static const locale_t plainLocale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  const double value = ::strtod_l(std::string(field).c_str(), nullptr, plainLocale);
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

}  // namespace wakelatch::platform
