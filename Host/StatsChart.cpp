#include "Host/StatsChart.h"

#include <algorithm>
#include <cmath>

#include "Host/Page.h"
#include "Host/StatsReport.h"
#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

constexpr double top = 10, bottom = 220, labelLine = 242;  // pixels
constexpr double gap = 1;                                  // pixels between the kinds of a day
constexpr double widestBar = 6;                            // percent
constexpr int mostGridLines = 5;                           // above the one at 0

class Chart {
 public:
  explicit Chart(const std::vector<UsageMetrics::RecentDay>& days)
      : days_(days), slot_(100.0 / static_cast<double>(days.size())), dense_(days.size() > 60) {
    constexpr double minute = 60;
    double longest = minute;
    for (const auto& day : days) longest = std::max(longest, awakeSeconds(day.bucket));
    step_ = std::max(axisStep(longest, mostGridLines), minute);
    gridLines_ = static_cast<int>(std::ceil(longest / step_));
    pixelsPerSecond_ = (bottom - top) / (gridLines_ * step_);
  }

  std::string svg() const {
    std::string html =
        "<svg class=\"days\" role=\"img\" aria-labelledby=\"chart-title chart-text\">\n"
        "<title id=\"chart-title\">Time kept awake per day</title>\n"
        "<desc id=\"chart-text\">A stacked bar a day. The table of days has every figure.</desc>\n";
    for (int line = 0; line <= gridLines_; ++line) html += gridLine(line * step_);
    for (std::size_t i = 0; i < days_.size(); ++i) {
      if (awakeSeconds(days_[i].bucket) > 0) html += bar(i);
    }
    return html + labels() + "</svg>\n";
  }

 private:
  std::string gridLine(double seconds) const {
    const std::string y = decimal(bottom - seconds * pixelsPerSecond_);
    const std::int64_t minutes = std::llround(seconds / 60);
    const std::string text =
        minutes % 60 == 0 ? std::to_string(minutes / 60) + "h" : std::to_string(minutes) + "m";
    return "<line x2=\"100%\"" + attribute("y1", y) + attribute("y2", y) + "/><text x=\"-8\"" +
           attribute("y", y) + " dy=\".35em\" text-anchor=\"end\">" + text + "</text>\n";
  }

  std::string rectangle(const std::string& styleClass, double x, double width, double y,
                        double height) const {
    return "<rect" + attribute("class", styleClass) + (dense_ ? "" : " rx=\"2\"") +
           attribute("x", percent(x)) + attribute("width", percent(width)) +
           attribute("y", decimal(y)) + attribute("height", decimal(height)) + "/>";
  }

  /// A day's kinds one on the other, with a tooltip over the whole height.
  std::string bar(std::size_t day) const {
    const double start = slot_ * static_cast<double>(day);
    const double width = std::min(dense_ ? slot_ : slot_ * 0.7, widestBar);
    const double x = start + (slot_ - width) / 2;
    std::string bars, tooltip = dayAndYearText(days_[day].dayKey);
    double sum = 0;
    for (std::size_t kind = 0; kind < awakeKinds.size(); ++kind) {
      const double seconds = sane(days_[day].bucket.*awakeKinds[kind].seconds);
      if (seconds <= 0) continue;
      sum += seconds;
      bars += rectangle("kind" + std::to_string(kind), x, width, bottom - sum * pixelsPerSecond_,
                        std::max(seconds * pixelsPerSecond_ - gap, 1.0));
      tooltip += "\n" + std::string(awakeKinds[kind].name) + " " + durationText(seconds);
    }
    return "<g><title>" + tooltip + "</title>" +
           rectangle("slot", start, slot_, top, bottom - top) + bars + "</g>\n";
  }

  /// Counted back from the last day, which always has one; each third is enough on a phone.
  std::string labels() const {
    const bool withYear = days_.size() > 300;
    const std::size_t most = withYear ? 9 : 15;
    const std::size_t every = (days_.size() + most - 1) / most;
    std::string html;
    for (std::size_t back = 0; back < days_.size(); back += every) {
      const std::size_t day = days_.size() - 1 - back;
      const double middle = slot_ * (static_cast<double>(day) + 0.5);
      if (dense_ && middle < slot_ * 4) break;  // it would stick out at the left
      html += back / every % 3 == 0 ? "<text" : "<text class=\"minor\"";
      html += attribute("x", percent(middle)) + attribute("y", decimal(labelLine)) +
              attribute("text-anchor", dense_ ? "end" : "middle") + ">" +
              (withYear ? dayAndYearText : dayText)(days_[day].dayKey) + "</text>\n";
    }
    return html;
  }

  const std::vector<UsageMetrics::RecentDay>& days_;
  const double slot_;  // percent of the width for each day
  const bool dense_;   // bars without gaps or round corners, which would be finer than pixels
  double step_ = 0;    // seconds
  int gridLines_ = 0;
  double pixelsPerSecond_ = 0;
};

}  // namespace

std::string dayChart(const std::vector<UsageMetrics::RecentDay>& days) {
  return Chart(days).svg();
}

}  // namespace wakelatch::host
