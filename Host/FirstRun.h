// What a user is told at the very first start.
#pragma once

#include "Host/Notices.h"
#include "Host/Observer.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// Tells what was detected and what the accessibility permission is for, once for each home
/// directory. Reads and writes a small file.
void greetOnce(const Observation& seen, const GuardSettings& settings,
               const AgentProfiles& profiles, Notifier& notifier);

}  // namespace wakelatch::host
