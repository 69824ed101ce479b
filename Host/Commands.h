// What each command does. Data goes to standard output, diagnostics to standard error; what a
// command throws is a failure that its caller reports.
#pragma once

#include "Host/CommandLine.h"
#include "Host/Tools.h"

namespace wakelatch::host {

///@{
/// Runs a command to its end and returns the status to leave with. The first comment of its file
/// says what it reads and writes.
ExitStatus runCommand(const StatusOptions& options, Tools& tools);
ExitStatus runCommand(const ExplainOptions& options, Tools& tools);
ExitStatus runCommand(const WatchOptions& options, Tools& tools);
ExitStatus runCommand(const ReplayOptions& options, Tools& tools);
ExitStatus runCommand(const AgentsOptions& options, Tools& tools);
ExitStatus runCommand(const StatsOptions& options, Tools& tools);
ExitStatus runCommand(const RestoreOptions& options, Tools& tools);
ExitStatus runCommand(const DoctorOptions& options, Tools& tools);
///@}

}  // namespace wakelatch::host
