// What a user is told at the very first start.
#pragma once

#include "Host/Observer.h"
#include "WakelatchCore/Models.h"

namespace wakelatch::host {

/// Prints what was detected and what the accessibility permission is for, once in the life of this
/// home folder.
void greetOnce(const Observation& seen, const GuardSettings& settings);

}  // namespace wakelatch::host
