// A moment as a person writes it.
#pragma once

#include <string>

#include "Platform/Clock.h"

namespace wakelatch::host {

/// The first moment from `start` on that `text` names: "03:12" or "03:12:30" on local clocks, or an
/// instant such as "2026-11-23T03:12:30Z" or "…30.250Z", whenever that is. What is given to the
/// minute or the second means its last millisecond. Throws std::runtime_error saying what is
/// wanted.
Timestamp momentAfter(Timestamp start, const std::string& text);

}  // namespace wakelatch::host
