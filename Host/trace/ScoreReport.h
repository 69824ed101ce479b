// A score for people: a table for the terminal, and a web page. Pure, but for the time zone.
#pragma once

#include <string>
#include <vector>

#include "Host/trace/Score.h"
#include "Host/trace/ScoreChart.h"

namespace wakelatch::host {

/// A line for each agent, for the machine and for each way of keeping it awake by hand, with a
/// legend under them.
std::string scoreText(const Score& score);

/// The score as one self-contained HTML page, with a chart of each trace. It loads nothing and runs
/// no script.
/// @param score  of all the traces together
std::string scorePage(const std::vector<ScoredTrace>& traces, const Score& score, Timestamp now);

}  // namespace wakelatch::host
