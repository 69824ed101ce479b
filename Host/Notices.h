// Sentences for the user beside the data: on standard error.
#pragma once

#include <string>

namespace wakelatch::host {

/// Prints "wakelatch: " and the text as a line of its own, over a live status line if there is one.
void printNotice(const std::string& text);

}  // namespace wakelatch::host
