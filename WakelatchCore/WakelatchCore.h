// Includes all headers that an embedding program needs.
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
/// The library: detectors that observe, the state machine that decides and the controller that
/// acts.

/// @namespace wakelatch::platform
/// What the library needs of the operating system. Public headers use its clock, text services,
/// serial queue and accessibility interface.
