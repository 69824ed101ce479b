// `replay`: what a recording's decisions were, or would have been, and what they were worth.
#include <iostream>
#include <optional>
#include <stdexcept>

#include "Host/Commands.h"
#include "Host/Explanation.h"
#include "Host/Notices.h"
#include "Host/SettingsFile.h"
#include "Host/StatusReport.h"
#include "Host/Terminal.h"
#include "Host/trace/Replay.h"

namespace wakelatch::host {

ExitStatus runReplay(const ReplayOptions& options) {
  Replay::Options how{
      .settings = std::nullopt, .cpuFactor = options.cpuFactor, .agent = options.agent};
  if (!options.settingsFile.empty()) how.settings = loadSettings(options.settingsFile);
  for (const std::string& file : options.files) {
    Replay replay(file, how);
    TickReports reports(true);
    while (const auto tick = replay.next()) {
      if (options.json) std::cout << encode(reports.of(*tick), DateCoding::iso8601) << '\n';
    }
  }
  return ExitStatus::done;
}

}  // namespace wakelatch::host
