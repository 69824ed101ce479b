// Both listings of `ps`, against plain definitions. The input is a listing.
#include <cerrno>
#include <cmath>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "Platform/Numbers.h"
#include "Platform/Text.h"
#include "WakelatchCore/ProcessDetector.h"

using namespace wakelatch;
using fuzz::require;

namespace {

constexpr std::string_view digits = "0123456789";

std::string_view withoutSign(std::string_view field) {
  if (field.starts_with('+') || field.starts_with('-')) field.remove_prefix(1);
  return field;
}

std::optional<std::int32_t> plainInt32(const std::string& field) {
  const std::string_view number = withoutSign(field);
  if (number.empty() || number.find_first_not_of(digits) != number.npos) return std::nullopt;
  errno = 0;
  const long long value = std::strtoll(field.c_str(), nullptr, 10);
  using Limits = std::numeric_limits<std::int32_t>;
  if (errno != 0 || value < Limits::min() || value > Limits::max()) return std::nullopt;
  return static_cast<std::int32_t>(value);
}

std::optional<double> plainDecimal(const std::string& field) {
  const auto [whole, fraction] = fuzz::cut(withoutSign(field), '.');
  const std::string all = std::string(whole).append(fraction);
  if (all.empty() || all.find_first_not_of(digits) != all.npos) return std::nullopt;
  const double value = std::strtod(field.c_str(), nullptr);  // in the "C" locale
  return std::isfinite(value) ? std::optional(value) : std::nullopt;
}

/// Calls `use` with each line that is not empty, trimmed of white space.
template <class Use>
void forEachLine(std::string_view text, Use use) {
  while (!text.empty()) {
    const auto [line, rest] = fuzz::cut(text, '\n');
    const std::string_view trimmed = platform::trimmedSpaces(line);
    if (!trimmed.empty()) use(trimmed);
    text = rest;
  }
}

std::vector<ProcessSnapshot> plainPSOutput(std::string_view text) {
  std::vector<ProcessSnapshot> rows;
  forEachLine(text, [&](std::string_view line) {
    std::vector<std::string> fields;
    while (fields.size() < 3 && !line.empty()) {
      const auto [field, rest] = fuzz::cut(line, ' ');
      if (!field.empty()) fields.emplace_back(field);
      line = rest;
    }
    if (fields.size() < 3 || line.empty()) return;
    const auto pid = plainInt32(fields[0]), parentPID = plainInt32(fields[1]);
    const auto cpuPercent = plainDecimal(fields[2]);
    if (pid && parentPID && cpuPercent)
      rows.push_back({*pid, *parentPID, *cpuPercent, std::string(line)});
  });
  return rows;
}

std::map<std::int32_t, std::string> plainPSArgs(std::string_view text) {
  std::map<std::int32_t, std::string> arguments;
  forEachLine(text, [&](std::string_view line) {
    const auto [field, rest] = fuzz::cut(line, ' ');
    const auto pid = plainInt32(std::string(field));
    if (pid && line.find(' ') != line.npos) arguments[*pid] = platform::trimmedSpaces(rest);
  });
  return arguments;
}

}  // namespace

FUZZ(text) {
  const auto rows = ProcessDetector::parsePSOutput(text);
  require(rows == plainPSOutput(text), "the process listing is read as defined");
  std::string printed;
  for (const ProcessSnapshot& row : rows) {
    require(std::isfinite(row.cpuPercent), "CPU is finite");
    const std::string& command = row.command;
    require(!command.empty() && command.find('\n') == command.npos, "a command is of one line");
    char numbers[400];
    std::snprintf(numbers, sizeof numbers, "%d %d %.17f ", row.pid, row.parentPID, 0.5);
    printed += numbers + command + "\n";
  }
  auto expected = rows;
  for (ProcessSnapshot& row : expected) row.cpuPercent = 0.5;
  require(ProcessDetector::parsePSOutput(printed) == expected, "what is printed again reads alike");

  const auto arguments = ProcessDetector::parsePSArgs(text);
  const auto plain = plainPSArgs(text);
  require(std::map(arguments.begin(), arguments.end()) == plain, "arguments are read as defined");

  const std::string field(fuzz::cut(text, '\n').first);
  require(platform::parseInt32(field) == plainInt32(field), "32 bits are read as defined");
  require(platform::parseDecimal(field) == plainDecimal(field), "decimals are read as defined");
}
