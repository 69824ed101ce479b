#include "WakelatchCore/PowerMonitor.h"

#include <cstddef>
#include <exception>
#include <string>

#include "Platform/Text.h"
#include "Platform/Utf8.h"
#include "WakelatchCore/FileLogger.h"

namespace wakelatch {
namespace {

/// The length in bytes of the decimal digit, of any script, at the end of `text`; 0 if there is
/// none.
std::size_t endingDigitLength(std::string_view text) {
  if (text.empty()) return 0;
  const platform::Scalar last = platform::lastScalar(text);
  return last.value != platform::brokenByte && platform::isDecimalDigit(last.value) ? last.length
                                                                                    : 0;
}

/// The number before the first percent sign that directly follows a digit: at most its last three
/// digits; absent if one of these is not ASCII.
std::optional<std::int64_t> firstPercentage(std::string_view text) {
  for (auto sign = text.find('%'); sign != text.npos; sign = text.find('%', sign + 1)) {
    std::size_t start = sign;
    for (int digits = 0; digits < 3; ++digits) start -= endingDigitLength(text.substr(0, start));
    if (start == sign) continue;
    std::int64_t percent = 0;
    for (const char c : text.substr(start, sign - start)) {
      if (c < '0' || c > '9') return std::nullopt;
      percent = percent * 10 + (c - '0');
    }
    return percent;
  }
  return std::nullopt;
}

void logFailure(std::string_view probe, const std::exception& error) {
  FileLogger::shared().log(std::string(probe) + " failed: " + error.what());
}

}  // namespace

PowerSnapshot PowerMonitor::snapshot() try {
  return parsePMSetBatteryOutput(runner_.run({"/usr/bin/pmset", {"-g", "batt"}}).standardOutput);
} catch (const std::exception& error) {
  logFailure("PowerMonitor", error);
  return {false, std::nullopt, "Unable to read battery state"};
}

PowerSnapshot PowerMonitor::parsePMSetBatteryOutput(std::string_view output) {
  const bool isOnACPower = platform::lowercased(output).find("ac power") != std::string::npos;
  return {isOnACPower, firstPercentage(output), std::string(platform::trimmed(output))};
}

LidState LidStateDetector::lidState() try {
  return parseIORegOutput(
      runner_.run({"/usr/sbin/ioreg", {"-r", "-k", "AppleClamshellState", "-d", "1"}})
          .standardOutput);
} catch (const std::exception& error) {
  logFailure("LidStateDetector", error);
  return LidState::unknown;
}

LidState LidStateDetector::parseIORegOutput(std::string_view output) {
  struct Form {
    std::string_view text;
    LidState state;
  };
  static constexpr Form forms[] = {
      {"\"appleclamshellstate\" = yes", LidState::closed},
      {"appleclamshellstate = yes", LidState::closed},
      {"\"appleclamshellstate\" = no", LidState::open},
      {"appleclamshellstate = no", LidState::open},
  };
  const std::string lower = platform::lowercased(output);
  for (const Form& form : forms) {
    if (lower.find(form.text) != std::string::npos) return form.state;
  }
  return LidState::unknown;
}

}  // namespace wakelatch
