// `stats`: what was protected so far, printed as text or as one JSON object, or written to a web
// page. Reads the statistics and never creates, changes or moves their file; needs no lock, since a
// running watch replaces the file in one step. Leaves with 1 when the file cannot be read or is
// damaged, or the page cannot be written.
#include <unistd.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>

#include "Host/Commands.h"
#include "Host/StatsPage.h"
#include "Host/StatsText.h"
#include "Host/SupportDirectory.h"
#include "Host/UsageStore.h"
#include "Platform/Files.h"

namespace wakelatch::host {

ExitStatus runCommand(const StatsOptions& options, Tools& /*tools*/) {
  const Timestamp now = platform::now();
  const std::optional<UsageMetrics> stored = loadUsage(usageFile());
  const UsageMetrics metrics = stored.value_or(UsageMetrics(now));
  if (!options.htmlFile.empty()) {
    if (std::filesystem::exists(options.htmlFile) &&
        !std::filesystem::is_regular_file(options.htmlFile)) {
      throw std::runtime_error("not a regular file: " + options.htmlFile);
    }
    platform::writeAtomically(options.htmlFile, statsPage(metrics, now, options.days));
  }
  const StatsReport report = makeStatsReport(metrics, now, options.days);
  if (options.json) {
    std::cout << encode(report, DateCoding::iso8601) << "\n";
  } else if (!options.htmlFile.empty()) {
    std::cout << "Wrote " << printable(options.htmlFile) << "\n";
  } else if (!stored) {
    std::cout << "Nothing is recorded yet; `wakelatch watch` records while it runs.\n";
  } else {
    std::cout << statsText(report, terminalStyle(STDOUT_FILENO));
  }
  return ExitStatus::done;
}

}  // namespace wakelatch::host
