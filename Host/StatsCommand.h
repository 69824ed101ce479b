// `wakelatch stats`: what was protected so far. Reads the statistics, never creates, changes or
// moves their file, and needs no lock: a watching host replaces the file in one step.
#pragma once

#include <string>

#include "Host/CommandLine.h"
#include "Host/StatsReport.h"

namespace wakelatch::host {

/// What the place a text goes to can show.
struct TextStyle {
  int width = 80;       ///< columns
  bool colour = false;  ///< ANSI colours
};

/// The report for a person at a terminal, with a bar a day.
std::string statsText(const StatsReport& report, const TextStyle& style);

/// Prints the report as text, or as JSON with times in ISO 8601, or writes the page; what goes
/// wrong is told on standard error.
ExitStatus runStats(const StatsOptions& options);

}  // namespace wakelatch::host
