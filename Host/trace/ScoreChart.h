// The score page's chart of one trace.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Host/trace/Score.h"
#include "Host/trace/Truth.h"

namespace wakelatch::host {

/// A trace as it is drawn.
struct ScoredTrace {
  std::string title;
  std::vector<Sample> samples;
  std::vector<TruthInterval> intervals;
};

/// An SVG element with the trace's time from left to right: a lane for each agent of the truth, one
/// for decisions, one for each kind of evidence, and an axis in local time. Empty for a trace that
/// lasts no time. Colours are those of the page; `chartStyle` goes among its rules.
std::string stripChart(const ScoredTrace& trace);
extern const std::string_view chartStyle;

}  // namespace wakelatch::host
