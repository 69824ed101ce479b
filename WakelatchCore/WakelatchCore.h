// Everything that an embedding program needs of the library.
#pragma once

#include "WakelatchCore/AccessibilityDetector.h"
#include "WakelatchCore/ActivityDetector.h"
#include "WakelatchCore/AgentAppName.h"
#include "WakelatchCore/AgentCatalog.h"
#include "WakelatchCore/AgentStateMachine.h"
#include "WakelatchCore/FileActivityProbe.h"
#include "WakelatchCore/FileLogger.h"
#include "WakelatchCore/Models.h"
#include "WakelatchCore/PhraseMatcher.h"
#include "WakelatchCore/PowerMonitor.h"
#include "WakelatchCore/ProcessDetector.h"
#include "WakelatchCore/SessionActivityDetector.h"
#include "WakelatchCore/ShellCommand.h"
#include "WakelatchCore/SleepController.h"
#include "WakelatchCore/TurnDetector.h"
#include "WakelatchCore/UsageMetrics.h"
#include "WakelatchCore/WatchingFileProbe.h"

/// @namespace wakelatch
/// The library: what observes, what decides and what acts, one header each.

/// @namespace wakelatch::platform
/// What the library needs of the operating system. A host meets the clock, the text services, the
/// serial queue and the interface that reads user interfaces.
