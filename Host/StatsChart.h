// The statistics page's chart of days.
#pragma once

#include <string>
#include <vector>

#include "WakelatchCore/UsageMetrics.h"

namespace wakelatch::host {

/// An SVG element with a stacked bar a day, for days oldest first. Widths are
/// percentages, so that it fits any screen while texts keep their size; heights are pixels. Colours
/// come from the page's classes "kind0" to "kind3"; labels of class "minor" may be left out where
/// space is short.
std::string dayChart(const std::vector<UsageMetrics::RecentDay>& days);

}  // namespace wakelatch::host
