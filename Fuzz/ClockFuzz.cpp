// Instants as text: ISO 8601 and the numbers in JSON. The input is a text; its first bytes are used
// as an instant too.
#include <time.h>

#include <cmath>
#include <cstring>
#include <stdexcept>
#include <string>

#include "Fuzz/Fuzz.h"
#include "Platform/Clock.h"
#include "WakelatchCore/Json.h"

using namespace wakelatch;
using fuzz::require;

namespace {

Timestamp instantOf(double seconds) {
  return Timestamp(std::chrono::duration<double>(seconds));
}

std::string isoOf(const tm& parts) {
  char text[80];
  std::snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return text;
}

/// Whether the instant lies in the years that can be read from ISO 8601.
std::string plainIso8601(std::int64_t seconds) {
  const time_t time = seconds;
  tm parts{};
  ::gmtime_r(&time, &parts);
  return isoOf(parts);
}

/// A date and a time of day, with values that may lie just outside the calendar.
void checkFields(std::uint64_t bits) {
  const auto take = [&bits](std::uint64_t limit) {
    const auto value = static_cast<int>(bits % limit);
    bits /= limit;
    return value;
  };
  tm parts{};
  parts.tm_sec = take(62), parts.tm_min = take(62), parts.tm_hour = take(26);
  parts.tm_mday = take(33), parts.tm_mon = take(14) - 1, parts.tm_year = take(10000) - 1900;
  const std::string text = isoOf(parts);
  const time_t time = ::timegm(&parts);
  const auto read = platform::parseIso8601(text);
  require(read.has_value() == (plainIso8601(time) == text),
          "ISO 8601 is read if there is such a day");
  require(!read || *read == instantOf(static_cast<double>(time)), "the calendar is the system's");
}

/// Whether an instant may lose bits when written in seconds since 2001.
bool isRounded(double seconds, DateCoding coding) {
  return coding == DateCoding::secondsSince2001 && !(seconds >= 489153600 && seconds <= 0x1p53);
}

void check(double seconds) {
  constexpr double firstYear = -62167219200, lastYear = 253402300800;
  const Timestamp instant = instantOf(seconds);
  const bool hasIsoForm = seconds >= firstYear && seconds < lastYear;
  const std::string iso = platform::iso8601(instant);
  const auto read = platform::parseIso8601(iso);
  require(read.has_value() == hasIsoForm, "ISO 8601 is read in the years 0000 to 9999");
  if (hasIsoForm) {
    require(*read == instantOf(std::floor(seconds)), "ISO 8601 is cut to the second");
    require(iso == plainIso8601(static_cast<std::int64_t>(std::floor(seconds))),
            "the calendar is the system's");
  }
  try {
    const std::string json = encode(instant, DateCoding::iso8601);
    require(hasIsoForm && json == '"' + iso + '"', "JSON holds ISO 8601 where there is a form");
  } catch (const std::domain_error&) {
    require(!hasIsoForm, "an instant with a form is written");
  }
  for (const auto coding : {DateCoding::secondsSince2001, DateCoding::secondsSince1970}) {
    try {
      const std::string json = encode(instant, coding);
      require(std::isfinite(seconds), "what is not finite is not written");
      require(decode<Timestamp>(json, coding) == instant || isRounded(seconds, coding),
              "numbers keep every bit");
    } catch (const std::domain_error&) {
      require(!std::isfinite(seconds), "what is finite is written");
    }
  }
}

/// Requires that any number read from JSON is written so that it reads back as the same number.
void checkNumber(std::string_view text) {
  for (const auto coding : {DateCoding::secondsSince2001, DateCoding::secondsSince1970}) {
    try {
      const auto instant = decode<Timestamp>(text, coding);
      const std::string json = encode(instant, coding);
      if (isRounded(instant.time_since_epoch().count(), coding)) continue;
      require(decode<Timestamp>(json, coding) == instant, "an instant that was read is written");
      require(encode(decode<Timestamp>(json, coding), coding) == json, "and written alike");
    } catch (const DecodingError&) {
    }
  }
}

}  // namespace

FUZZ(text) {
  if (const auto instant = platform::parseIso8601(text))
    require(platform::iso8601(*instant) == text, "ISO 8601 that is read is written alike");
  checkNumber(text);
  if (text.size() < 8) return;
  std::int64_t bits = 0;
  std::memcpy(&bits, text.data(), sizeof bits);
  double anything = 0;
  std::memcpy(&anything, &bits, sizeof anything);
  check(anything);
  checkFields(static_cast<std::uint64_t>(bits));
  check(static_cast<double>(bits % 300'000'000'000'000) / 1000);
  check(static_cast<double>(bits % 4'000'000'000) / 3);
}
