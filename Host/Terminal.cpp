#include "Host/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include "Platform/Utf8.h"

namespace wakelatch::host {

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto [value, length] = platform::firstScalar(text);
    const bool isControl = value < 0x20 || (value >= 0x7F && value < 0xA0);
    // Line separators, and marks that turn the direction of what follows.
    const bool misleads = (value >= 0x2028 && value <= 0x202E) ||
                          (value >= 0x2066 && value <= 0x2069) || value == 0x200E ||
                          value == 0x200F || value == 0x061C;
    if (isControl || misleads || value == platform::brokenByte) {
      result += "\uFFFD";
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length);
  }
  return result;
}

int terminalWidth() {
  winsize size{};
  const bool isKnown = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return isKnown ? size.ws_col : 80;
}

}  // namespace wakelatch::host
