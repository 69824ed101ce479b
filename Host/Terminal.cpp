#include "Host/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "Platform/Utf8.h"

namespace wakelatch::host {
namespace {

bool isWide(char32_t value) {
  using Range = std::pair<char32_t, char32_t>;
  static constexpr auto ranges = std::to_array<Range>({{0x1100, 0x115F},
                                                       {0x2E80, 0x303E},
                                                       {0x3041, 0xA4CF},
                                                       {0xA960, 0xA97C},
                                                       {0xAC00, 0xD7A3},
                                                       {0xF900, 0xFAFF},
                                                       {0xFE30, 0xFE6F},
                                                       {0xFF01, 0xFF60},
                                                       {0xFFE0, 0xFFE6},
                                                       {0x1F300, 0x1F64F},
                                                       {0x1F680, 0x1F6FF},
                                                       {0x1F900, 0x1F9FF},
                                                       {0x20000, 0x3FFFD}});
  return std::any_of(ranges.begin(), ranges.end(), [value](const Range& range) {
    return value >= range.first && value <= range.second;
  });
}

std::string blanks(int count) {
  return std::string(static_cast<std::size_t>(std::max(count, 0)), ' ');
}

}  // namespace

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

std::string_view firstColumns(std::string_view text, int columns) {
  std::size_t length = 0;
  while (length < text.size()) {
    const auto [value, size] = platform::firstScalar(text.substr(length));
    columns -= isWide(value) ? 2 : 1;
    if (columns < 0) break;
    length += size;
  }
  return text.substr(0, length);
}

int columnsOf(std::string_view text) {
  int columns = 0;
  while (!text.empty()) {
    const auto [value, size] = platform::firstScalar(text);
    columns += isWide(value) ? 2 : 1;
    text.remove_prefix(size);
  }
  return columns;
}

std::string padded(std::string_view text, int columns) {
  return std::string(text) + blanks(columns - columnsOf(text));
}

std::string paddedLeft(std::string_view text, int columns) {
  return blanks(columns - columnsOf(text)) + std::string(text);
}

std::string counted(std::int64_t count, std::string_view one) {
  return std::to_string(count).append(" ").append(one).append(count == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& texts, std::string_view separator) {
  std::string result;
  for (const std::string& text : texts) {
    result.append(result.empty() ? "" : separator).append(text);
  }
  return result;
}

bool isScreen(int descriptor) {
  const char* kind = std::getenv("TERM");
  return ::isatty(descriptor) == 1 && kind != nullptr && *kind != '\0' &&
         std::string_view(kind) != "dumb";
}

TerminalStyle terminalStyle(int descriptor) {
  const char* noColor = std::getenv("NO_COLOR");
  TerminalStyle style;
  style.hasColor = isScreen(descriptor) && (noColor == nullptr || *noColor == '\0');
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0) return style;
  if (size.ws_col > 0) style.columns = size.ws_col;
  if (size.ws_row > 0) style.rows = size.ws_row;
  return style;
}

std::string drawing(std::size_t linesBefore, const std::vector<std::string>& lines,
                    bool wasResized) {
  std::string bytes = "\033[?7l\r";
  if (wasResized) {
    bytes += "\033[H\033[2J";
  } else if (linesBefore > 0) {
    bytes += "\033[" + std::to_string(linesBefore) + "A";
  }
  // Each line is erased before it is written: after a line of full width the cursor stands on its
  // last column, which erasing would clear.
  for (const std::string& line : lines) bytes += "\033[K" + line + "\r\n";
  return bytes + "\033[J\033[?7h";
}

}  // namespace wakelatch::host
