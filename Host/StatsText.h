// The statistics for a person at a terminal.
#pragma once

#include <string>

#include "Host/StatsReport.h"
#include "Host/Terminal.h"

namespace wakelatch::host {

/// Totals, agents and days, with a bar for each agent and day. Pure, but for the time zone.
std::string statsText(const StatsReport& report, const TerminalStyle& style);

}  // namespace wakelatch::host
