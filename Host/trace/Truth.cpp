#include "Host/trace/Truth.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <tuple>
#include <utility>

#include "Platform/Files.h"
#include "WakelatchCore/Json.h"

namespace wakelatch::host {
namespace {

/// An instant with its fraction of a second, which the date codings of JSON cut off.
struct Instant {
  Timestamp at;
};

void read(const json::Value& in, Instant& value) {
  const auto at = platform::parseIso8601Fraction(in.string());
  if (!at) in.fail("expected a time such as \"2025-03-01T14:05:09.123Z\"");
  value.at = *at;
}

struct Line {
  Instant from, to;
  std::string agent;
  Doing state = Doing::idle;
};

}  // namespace
}  // namespace wakelatch::host

namespace wakelatch {
template <>
inline constexpr auto json::fields<host::Line> = std::tuple{
    json::required("from", &host::Line::from),
    json::required("to", &host::Line::to),
    json::required("agent", &host::Line::agent),
    json::required("state", &host::Line::state),
};
}  // namespace wakelatch

namespace wakelatch::host {

std::vector<TruthInterval> loadTruth(const std::filesystem::path& file) {
  const auto fail = [&](std::size_t line, const std::string& reason) {
    throw std::runtime_error(file.string() + ":" + std::to_string(line) + ": " + reason);
  };
  std::vector<std::pair<TruthInterval, std::size_t>> lines;  // each with its number
  std::istringstream content(platform::readFile(file));
  for (std::string text; std::getline(content, text);) {
    const std::size_t number = lines.size() + 1;
    try {
      Line line = decode<Line>(text);
      if (line.from.at > line.to.at) fail(number, "to: before from");
      lines.push_back({{line.from.at, line.to.at, std::move(line.agent), line.state}, number});
    } catch (const DecodingError& error) {
      fail(number, error.what());
    }
  }

  const auto byAgent = [](const auto& a, const auto& b) {
    return std::tie(a.first.agent, a.first.from) < std::tie(b.first.agent, b.first.from);
  };
  std::stable_sort(lines.begin(), lines.end(), byAgent);
  for (std::size_t i = 1; i < lines.size(); ++i) {
    const auto& [before, beforeLine] = lines[i - 1];
    const auto& [interval, line] = lines[i];
    if (before.agent == interval.agent && interval.from < before.to) {
      fail(std::max(line, beforeLine),
           "overlaps line " + std::to_string(std::min(line, beforeLine)) + " of the same agent");
    }
  }

  std::vector<TruthInterval> intervals;
  intervals.reserve(lines.size());
  for (auto& [interval, line] : lines) intervals.push_back(std::move(interval));
  std::stable_sort(intervals.begin(), intervals.end(),
                   [](const auto& a, const auto& b) { return a.from < b.from; });
  return intervals;
}

}  // namespace wakelatch::host
