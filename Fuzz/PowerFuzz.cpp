// The parsers of the output of `pmset -g batt`, `pmset -g` and `ioreg`, against plain definitions.
// The input is a tool's output; every parser gets it.
#include <optional>
#include <string>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "Platform/Text.h"
#include "Platform/Utf8.h"
#include "WakelatchCore/PowerMonitor.h"
#include "WakelatchCore/SleepController.h"

using namespace wakelatch;
using fuzz::require;

namespace {

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != text.npos;
}

/// The first capture of "(\d{1,3})%" as a number, trying every place from the left.
std::optional<std::int64_t> plainPercent(std::string_view text) {
  while (!text.empty()) {
    std::string_view rest = text;
    int digits = 0;
    while (digits < 3 && !rest.empty()) {
      const platform::Scalar next = platform::firstScalar(rest);
      if (next.value == platform::brokenByte || !platform::isDecimalDigit(next.value)) break;
      rest.remove_prefix(next.length);
      ++digits;
    }
    if (digits > 0 && rest.starts_with('%')) {
      const std::string captured(text.substr(0, text.size() - rest.size()));
      if (!platform::isAllAscii(captured)) return std::nullopt;
      return std::stoi(captured);
    }
    text.remove_prefix(platform::firstScalar(text).length);
  }
  return std::nullopt;
}

LidState plainLid(const std::string& lower) {
  if (contains(lower, "\"appleclamshellstate\" = yes")) return LidState::closed;
  if (contains(lower, "appleclamshellstate = yes")) return LidState::closed;
  if (contains(lower, "\"appleclamshellstate\" = no")) return LidState::open;
  if (contains(lower, "appleclamshellstate = no")) return LidState::open;
  return LidState::unknown;
}

bool plainSleepDisabled(std::string_view text) {
  while (!text.empty()) {
    const auto [line, rest] = fuzz::cut(text, '\n');
    std::vector<std::string> tokens(1);
    for (const char c : line) {
      if (c != ' ' && c != '\t') {
        tokens.back() += c;
      } else if (!tokens.back().empty()) {
        tokens.emplace_back();
      }
    }
    if (tokens.size() > 1 && tokens.back().empty()) tokens.pop_back();
    if (tokens.front() == "SleepDisabled") return tokens.back() == "1";
    text = rest;
  }
  return false;
}

}  // namespace

FUZZ(text) {
  const PowerSnapshot power = PowerMonitor::parsePMSetBatteryOutput(text);
  const std::string lower = platform::lowercased(text);
  require(power.isOnACPower == contains(lower, "ac power"), "external power is read as defined");
  require(power.batteryPercent == plainPercent(text), "the percentage is read as defined");
  const std::int64_t percent = power.batteryPercent.value_or(0);
  require(percent >= 0 && percent <= 999, "a percentage has up to three digits");
  require(power.rawDescription == platform::trimmed(text), "the description is the text, trimmed");
  const PowerSnapshot again = PowerMonitor::parsePMSetBatteryOutput(power.rawDescription);
  require(again == power, "the description reads alike");

  require(LidStateDetector::parseIORegOutput(text) == plainLid(lower),
          "the lid is read as defined");
  require(SleepController::parseSleepDisabled(text) == plainSleepDisabled(text),
          "disabled sleep is read as defined");
}
