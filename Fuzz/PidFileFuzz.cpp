// The pid file, against a plain definition. The input is the file.
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "Platform/Text.h"
#include "Platform/Utf8.h"
#include "Tests/TemporaryDirectory.h"
#include "WakelatchCore/SleepController.h"

using namespace wakelatch;
using fuzz::require;

namespace {

using Ids = std::vector<std::int32_t>;

Ids plainIds(std::string_view text) {
  Ids ids;
  const auto addLine = [&ids](std::string_view line) {
    const std::string number(platform::trimmedSpaces(line));
    const std::size_t sign = number.starts_with('-') || number.starts_with('+') ? 1 : 0;
    if (number.size() == sign || number.find_first_not_of("0123456789", sign) != number.npos)
      return;
    errno = 0;
    const long long id = std::strtoll(number.c_str(), nullptr, 10);
    if (errno == 0 && id >= INT32_MIN && id <= INT32_MAX)
      ids.push_back(static_cast<std::int32_t>(id));
  };
  std::string line;
  while (!text.empty()) {
    const platform::Scalar next = platform::firstScalar(text);
    const char32_t c = next.value;
    if ((c >= '\n' && c <= '\r') || c == 0x85 || c == 0x2028 || c == 0x2029) {
      addLine(line);
      line.clear();
    } else {
      line += text.substr(0, next.length);
    }
    text.remove_prefix(next.length);
  }
  addLine(line);
  return ids;
}

}  // namespace

FUZZ(text) {
  const Ids ids = SleepController::parseCaffeinatePIDs(text);
  require(ids == plainIds(text), "ids are read as defined");
  std::string printed;
  for (const std::int32_t id : ids) printed += std::to_string(id) + "\n";
  require(SleepController::parseCaffeinatePIDs(printed) == ids,
          "what is printed again reads alike");

  if (text.size() % 8 != 0) return;  // files are slow
  static const TemporaryHome home;
  static const bool hasDirectory =
      std::filesystem::create_directories(SleepController::pidFileURL().parent_path());
  require(hasDirectory, "the directory is there");
  std::ofstream(SleepController::pidFileURL(), std::ios::binary) << text;
  require(SleepController::readCaffeinatePIDs() == (platform::isValidUtf8(text) ? ids : Ids()),
          "a file gives its ids, or none when it is no UTF-8");
}
