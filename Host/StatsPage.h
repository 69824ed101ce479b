// The statistics as a web page.
#pragma once

#include <string>

#include "WakelatchCore/UsageMetrics.h"

namespace wakelatch::host {

/// One self-contained HTML page about the last `days` days (at least 1), today included, and about
/// everything since statistics began. It loads nothing and runs no script; every figure of its
/// charts also stands in a table. Pure, but for the time zone.
std::string statsPage(const UsageMetrics& metrics, Timestamp now, int days);

}  // namespace wakelatch::host
