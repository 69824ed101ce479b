// Usage statistics, signals and power readings as JSON. The input is the text, read as each kind of
// record with each DateCoding.
#include "Fuzz/Json.h"
#include "WakelatchCore/UsageMetrics.h"

using namespace wakelatch;
using fuzz::require;

namespace {

template <class Record>
void check(std::string_view text, DateCoding coding) {
  Record held;
  if (!fuzz::requireJsonHolds(text, coding, held)) return;
  // Seconds since 2001 may be rounded when they are read.
  if (coding == DateCoding::secondsSince2001) return;
  require(fuzz::agrees(nlohmann::json::parse(encode(held, coding)), nlohmann::json::parse(text)),
          "what is read is what is written");
}

}  // namespace

FUZZ(text) {
  for (const auto coding :
       {DateCoding::secondsSince2001, DateCoding::secondsSince1970, DateCoding::iso8601})
    check<UsageMetrics>(text, coding);
  check<ActivitySignal>(text, DateCoding::secondsSince1970);
  check<PowerSnapshot>(text, DateCoding::secondsSince1970);
}
