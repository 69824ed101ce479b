#pragma once
#include <deque>
#include "Host/StatusReport.h"
#include "Host/Terminal.h"
namespace wakelatch::host {
struct ScreenInput {
  const StatusReport& report;
  Timestamp now;
  std::optional<Timestamp> graceEndsAt;
  double keptSecondsToday = 0;
  const std::deque<std::string>& notices;
};
struct ScreenStyle {
  int columns = 80;
  int rows = 24;
  bool color = false;
};
inline ScreenStyle screenStyle(int) {
  return {};
}
inline std::vector<std::string> watchScreen(const ScreenInput& in, const ScreenStyle&) {
  return {statusLine(in.report)};
}
inline std::string localTime(Timestamp t) {
  return platform::iso8601(t);
}
}  // namespace wakelatch::host
