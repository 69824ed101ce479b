// From a trace to its score.
#pragma once

#include <filesystem>

#include "Host/OneTick.h"
#include "Host/trace/Replay.h"
#include "Host/trace/Score.h"
#include "Host/trace/ScoreChart.h"

namespace wakelatch::host {

/// The part of a tick's decision that is scored.
Sample sampleOf(const OneTick& tick);

/// Replays a whole trace. Throws std::runtime_error naming file, line and reason.
ScoredTrace scoredTrace(const std::filesystem::path& trace, const std::filesystem::path& truth,
                        const Replay::Options& options);

/// The score of such a trace, by the display names of the catalogue.
/// @param profiles  as it was replayed with
Score score(const ScoredTrace& trace, const AgentProfiles& profiles);

}  // namespace wakelatch::host
