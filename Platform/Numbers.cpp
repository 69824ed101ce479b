#include "Platform/Numbers.h"

#include <locale.h>
#include <stdlib.h>
#ifdef __APPLE__
#include <xlocale.h>
#endif

#include <charconv>
#include <cmath>
#include <string>

namespace wakelatch::platform {

std::optional<std::int32_t> parseInt32(std::string_view field) {
  // from_chars() takes a minus, but no plus.
  if (field.starts_with('+') && !field.starts_with("+-")) field.remove_prefix(1);
  const char* const end = field.data() + field.size();
  std::int32_t value = 0;
  const auto [parsedTo, error] = std::from_chars(field.data(), end, value);
  return error == std::errc() && parsedTo == end ? std::optional(value) : std::nullopt;
}

std::optional<double> parseDecimal(std::string_view field) {
  const std::string_view number =
      field.substr(field.starts_with('+') || field.starts_with('-') ? 1 : 0);
  if (number.find_first_of("0123456789") == number.npos) return std::nullopt;
  if (number.find_first_not_of("0123456789.") != number.npos) return std::nullopt;
  if (number.find('.') != number.rfind('.')) return std::nullopt;
  // Not the process's locale, whose decimal sign may be a comma.
  static const locale_t plainLocale = ::newlocale(LC_ALL_MASK, "C", nullptr);
  const double value = ::strtod_l(std::string(field).c_str(), nullptr, plainLocale);
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

}  // namespace wakelatch::platform
