// The scores that each trace is expected to have: a file beside the traces, compared with the
// present scores. Pure, but for loadLimits().
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "Host/trace/Score.h"

namespace wakelatch::host {

/// The machine's figures of one trace, by Measure::key; seconds are rounded to tenths.
using Limit = std::map<std::string, double>;
using Limits = std::map<std::string, Limit>;  ///< by the trace's name

Limit limitOf(const Figures& figures);

/// Throws std::runtime_error naming the file, and the place in it, when it is no limits file.
Limits loadLimits(const std::filesystem::path& file);

/// The file's content: traces by name and a line for each figure, so that differences are readable.
std::string encodeLimits(const Limits& limits);

/// A sentence for each figure that is not what it was, and for each trace that only one side has:
/// "night: notHeldSeconds is 12.5, limit 10: worse". Another amount of work counts as worse, since
/// it is not the same trace any more.
std::vector<std::string> compare(const Limits& limits, const Limits& now);

}  // namespace wakelatch::host
