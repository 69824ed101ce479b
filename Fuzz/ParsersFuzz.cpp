// Feeds arbitrary bytes to everything that parses text from outside: the first byte chooses the
// parser, the rest is its input. What a parser accepts must also survive its own round trip.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Platform/Clock.h"
#include "Platform/Text.h"
#include "WakelatchCore/WakelatchCore.h"

using namespace wakelatch;

namespace {

template <class Record>
void roundTrip(std::string_view text) {
  try {
    const auto record = decode<Record>(text);
    if (!(decode<Record>(encode(record)) == record)) std::abort();
  } catch (const DecodingError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data) + 1, size - 1);
  switch (data[0] % 9) {
    case 0:
      roundTrip<GuardSettings>(text);
      break;
    case 1:
      roundTrip<UsageMetrics>(text);
      break;
    case 2:
      roundTrip<ActivitySignal>(text);
      break;
    case 3:
      ProcessDetector::parsePSOutput(text);
      break;
    case 4:
      ProcessDetector::parsePSArgs(text);
      break;
    case 5:
      PowerMonitor::parsePMSetBatteryOutput(text);
      LidStateDetector::parseIORegOutput(text);
      break;
    case 6:
      SleepController::parseCaffeinatePIDs(text);
      SleepController::parseSleepDisabled(text);
      break;
    case 7:
      platform::parseIso8601(text);
      if (platform::firstCharacters(text, 64).size() > text.size()) std::abort();
      break;
    default: {
      // Whatever it is, a text contains itself.
      const std::string phrase(text);
      const auto match = PhraseMatcher({phrase}, {}).match(phrase);
      if (match != PhraseMatchKind::active(phrase) && !platform::trimmed(phrase).empty()) {
        std::abort();
      }
    }
  }
  return 0;
}
