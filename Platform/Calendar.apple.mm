#import <Foundation/Foundation.h>

#include <stdexcept>
#include <utility>

#include "Platform/Calendar.h"

namespace wakelatch::platform {

struct TimeZone::Rules {
  NSTimeZone* zone;  ///< immutable, and safe to ask from any thread
};

TimeZone::TimeZone(std::unique_ptr<Rules> rules) : rules_(std::move(rules)) {}

TimeZone::TimeZone(const std::string& name) : rules_(new Rules) {
  @autoreleasepool {
    NSString* text = [NSString stringWithUTF8String:name.c_str()];
    rules_->zone = text == nil ? nil : [NSTimeZone timeZoneWithName:text];
  }
  if (rules_->zone == nil) throw std::invalid_argument("no time zone is named " + name);
}

TimeZone::~TimeZone() = default;

const TimeZone& TimeZone::ofProcess() {
  // A copy of the zone: `defaultTimeZone`, unlike `localTimeZone`, does not follow later changes.
  static const TimeZone zone(std::unique_ptr<Rules>(new Rules{[NSTimeZone defaultTimeZone]}));
  return zone;
}

std::chrono::seconds TimeZone::offset(std::chrono::sys_seconds instant) const {
  @autoreleasepool {
    NSDate* date = [NSDate
        dateWithTimeIntervalSince1970:static_cast<double>(instant.time_since_epoch().count())];
    return std::chrono::seconds{[rules_->zone secondsFromGMTForDate:date]};
  }
}

}  // namespace wakelatch::platform
