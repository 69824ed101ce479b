#include <unicode/ucal.h>

#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include "Platform/Calendar.h"
#include "Platform/Mutex.h"

namespace wakelatch::platform {
namespace {

/// A zone's name as ICU takes it; empty when ICU knows no such zone.
std::u16string knownName(std::string_view name) {
  const std::u16string wide(name.begin(), name.end());
  UChar canonical[128];
  UBool isKnown = false;
  UErrorCode status = U_ZERO_ERROR;
  ucal_getCanonicalTimeZoneID(wide.data(), static_cast<std::int32_t>(wide.size()), canonical,
                              std::size(canonical), &isKnown, &status);
  return U_SUCCESS(status) && isKnown ? wide : std::u16string();
}

/// What the variable TZ names; empty when it is unset or holds a rule in place of a name. ICU looks
/// there itself but passes over names with digits, such as "Etc/GMT+12".
std::u16string nameInEnvironment() {
  const char* variable = std::getenv("TZ");
  std::string_view name = variable == nullptr ? "" : variable;
  if (!name.empty() && name.front() == ':') name.remove_prefix(1);
  return knownName(name);
}

}  // namespace

/// ICU's calendar computes inside itself: one caller at a time.
struct TimeZone::Rules {
  Mutex mutex;
  UCalendar* calendar WAKELATCH_GUARDED_BY(mutex);

  /// An empty name stands for the system's zone.
  explicit Rules(const std::u16string& name) {
    UErrorCode status = U_ZERO_ERROR;
    calendar = ucal_open(name.empty() ? nullptr : name.data(),
                         static_cast<std::int32_t>(name.size()), "", UCAL_GREGORIAN, &status);
    if (U_FAILURE(status)) throw std::runtime_error(u_errorName(status));
  }
  ~Rules() { ucal_close(calendar); }
  Rules(const Rules&) = delete;
  Rules& operator=(const Rules&) = delete;
};

TimeZone::TimeZone(std::unique_ptr<Rules> rules) : rules_(std::move(rules)) {}

TimeZone::TimeZone(const std::string& name) {
  const std::u16string known = knownName(name);
  if (known.empty()) throw std::invalid_argument("no time zone is named " + name);
  rules_ = std::make_unique<Rules>(known);
}

TimeZone::~TimeZone() = default;

const TimeZone& TimeZone::ofProcess() {
  static const TimeZone zone(std::make_unique<Rules>(nameInEnvironment()));
  return zone;
}

std::chrono::seconds TimeZone::offset(std::chrono::sys_seconds instant) const {
  const MutexLock lock(rules_->mutex);
  UErrorCode status = U_ZERO_ERROR;
  ucal_setMillis(rules_->calendar, 1000.0 * static_cast<double>(instant.time_since_epoch().count()),
                 &status);
  const std::chrono::milliseconds offset{ucal_get(rules_->calendar, UCAL_ZONE_OFFSET, &status) +
                                         ucal_get(rules_->calendar, UCAL_DST_OFFSET, &status)};
  return U_SUCCESS(status) ? std::chrono::floor<std::chrono::seconds>(offset)
                           : std::chrono::seconds{0};
}

}  // namespace wakelatch::platform
