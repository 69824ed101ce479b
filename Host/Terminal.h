// The terminal that standard output goes to.
#pragma once

#include <string>
#include <string_view>

namespace wakelatch::host {

/// `text` from outside as one harmless line: control characters, which could move the cursor or
/// speak for us on a line of their own, and bytes that are no text become U+FFFD.
std::string printable(std::string_view text);

/// Its width in columns; 80 when standard output is no terminal or does not tell.
int terminalWidth();

}  // namespace wakelatch::host
