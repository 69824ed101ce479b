#include "Host/trace/ScoreChart.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "Host/Page.h"
#include "Host/TimeText.h"

namespace wakelatch::host {
namespace {

constexpr double labelHeight = 18, laneHeight = 16, laneGap = 8, axisHeight = 24;  // pixels
constexpr double narrowest = 0.15;  // percent: what lasts a moment is still seen
constexpr int mostLabels = 8;       // on the axis, but for one at its start

std::string_view styleOf(Doing doing) {
  switch (doing) {
    case Doing::working:
      return "kind0";
    case Doing::waiting:
      return "kind2";
    case Doing::idle:
      return "track";
  }
  return {};
}

class Chart {
 public:
  explicit Chart(const ScoredTrace& trace)
      : samples_(trace.samples),
        start_(samples_.front().at),
        end_(after(samples_.back().at, secondsOf(samples_, samples_.size() - 1))) {
    for (const TruthInterval& interval : trace.intervals) {
      agents_[interval.agent].push_back(&interval);
    }
  }

  /// Whether it lasts.
  bool isDrawn() const { return start_ < end_; }

  std::string svg() {
    for (const auto& [agent, intervals] : agents_) {
      lane(escaped(agent));
      for (const TruthInterval* interval : intervals) {
        bar(interval->from, interval->to, styleOf(interval->doing), displayName(interval->doing));
      }
    }
    lane("Decisions");
    bars("kind1", "held", [](const Sample& sample) { return sample.isHeld; });
    bars("sleep", "sleep asked for", [](const Sample& sample) { return sample.isSleepAsked; });
    for (const auto& [kind, raw, label] : enumCases<EvidenceKind>) {
      if (kind == EvidenceKind::none) continue;
      lane("Evidence: " + std::string(label));
      bars("kind3", label, [kind = kind](const Sample& sample) { return sample.evidence == kind; });
    }
    axis();
    return "<svg class=\"strip\" role=\"img\" aria-label=\"What agents did and what was decided, "
           "over time\"" +
           attribute("height", decimal(bottom_ + axisHeight)) + ">\n" + content_ + "</svg>\n";
  }

 private:
  double across(Timestamp time) const {
    return secondsBetween(start_, time) / secondsBetween(start_, end_) * 100;
  }

  /// Begins a lane under the last one.
  void lane(const std::string& label) {
    bottom_ += labelHeight;
    content_ += "<text" + attribute("y", decimal(bottom_ - 5)) + ">" + label + "</text>" +
                "<rect class=\"lane\" width=\"100%\" height=\"1\"" +
                attribute("y", decimal(bottom_ + laneHeight)) + "/>\n";
    top_ = bottom_;
    bottom_ += laneHeight + laneGap;
  }

  /// A stretch of time in the lane, with a tooltip.
  void bar(Timestamp from, Timestamp to, std::string_view style, std::string_view label) {
    from = std::max(from, start_);
    to = std::min(to, end_);
    if (from > to) return;
    const double width = std::max(across(to) - across(from), narrowest);
    content_ += "<rect" + attribute("class", std::string(style)) +
                attribute("x", percent(across(from))) + attribute("width", percent(width)) +
                attribute("y", decimal(top_)) + attribute("height", decimal(laneHeight)) +
                "><title>" + std::string(label) + ", " + localTime(from) + " to " + localTime(to) +
                "</title></rect>\n";
  }

  /// A bar for every run of samples that `isIn`; a run ends where nobody looks.
  template <class IsIn>
  void bars(std::string_view style, std::string_view label, const IsIn& isIn) {
    for (std::size_t i = 0; i < samples_.size(); ++i) {
      if (!isIn(samples_[i])) continue;
      const Timestamp from = samples_[i].at;
      Timestamp to = after(from, secondsOf(samples_, i));
      const auto goesOn = [&](const Sample& next) {
        return isIn(next) && secondsBetween(to, next.at) < 0.001;
      };
      while (i + 1 < samples_.size() && goesOn(samples_[i + 1])) {
        ++i;
        to = after(samples_[i].at, secondsOf(samples_, i));
      }
      bar(from, to, style, label);
    }
  }

  void axis() {
    const double step = axisStep(secondsBetween(start_, end_), mostLabels);
    const double first = std::ceil(start_.time_since_epoch().count() / step) * step;
    Timestamp time{std::chrono::duration<double>(first)};
    for (int count = 0; count <= mostLabels && time <= end_; time = after(time, step), ++count) {
      const std::string x = percent(across(time));
      content_ += "<line y1=\"0\"" + attribute("x1", x) + attribute("x2", x) +
                  attribute("y2", decimal(bottom_)) + "/><text text-anchor=\"middle\"" +
                  (count % 3 == 0 ? "" : attribute("class", "minor")) + attribute("x", x) +
                  attribute("y", decimal(bottom_ + 16)) + ">" +
                  localTime(time).substr(0, step < 60 ? 8 : 5) + "</text>\n";
    }
  }

  const std::vector<Sample>& samples_;
  const Timestamp start_, end_;
  std::map<std::string, std::vector<const TruthInterval*>> agents_;  // by id
  double top_ = 0, bottom_ = 0;                                      // pixels
  std::string content_;
};

}  // namespace

const std::string_view chartStyle =
    R"html(.strip { display: block; width: 100%; margin-top: .5rem; overflow: visible; }
.strip text { fill: var(--soft); font-size: 12px; } .strip .lane { fill: var(--line); }
.strip line { stroke: var(--line); stroke-dasharray: 2 4; }
.sleep { fill: #c62f2f; background: #c62f2f; }
)html";

std::string stripChart(const ScoredTrace& trace) {
  if (trace.samples.empty()) return {};
  Chart chart(trace);
  return chart.isDrawn() ? chart.svg() : std::string();
}

}  // namespace wakelatch::host
