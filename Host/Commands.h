// What each command does. Data goes to standard output, diagnostics to standard error; what a
// command throws is a failure that its caller reports.
#pragma once

#include "Host/CommandLine.h"
#include "Host/Tools.h"

namespace wakelatch::host {

ExitStatus runStatus(const StatusOptions& options, Tools& tools);
ExitStatus runExplain(const ExplainOptions& options, Tools& tools);
ExitStatus runReplay(const ReplayOptions& options);
ExitStatus runWatch(const WatchOptions& options, Tools& tools);
ExitStatus runAgents(const AgentsOptions& options);
ExitStatus runRestore(const RestoreOptions& options, Tools& tools);
ExitStatus runDoctor(const DoctorOptions& options, Tools& tools);

}  // namespace wakelatch::host
