// Damaged and invented traces. The input is the part of a trace after its first line.
#include <algorithm>
#include <fstream>
#include <stdexcept>

#include "Fuzz/Fuzz.h"
#include "Host/Explanation.h"
#include "Host/trace/Replay.h"
#include "Tests/TemporaryDirectory.h"

using namespace wakelatch;
using namespace wakelatch::host;
using fuzz::require;

FUZZ(text) {
  static const TemporaryDirectory directory;
  static const std::string header = [] {
    TraceHeader first;
    first.pid = 1;
    return encode(first, traceDates) + "\n";
  }();
  const std::filesystem::path file = directory.path() / "trace";
  std::ofstream(file) << header << text;
  try {
    Replay replay(file, {});
    std::ptrdiff_t ticks = 0;
    while (const auto tick = replay.next()) {
      ++ticks;
      require(!tick->decision.reason.empty(), "a decision has a reason");
      explanationText(explain(*tick));
    }
    require(ticks == std::count(text.begin(), text.end(), '\n'), "every whole line is a tick");
  } catch (const std::runtime_error& error) {
    require(std::string_view(error.what()).find(", line ") != std::string_view::npos,
            "an error names the line");
  }
}
