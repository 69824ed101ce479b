// The terminal that standard output goes to.
#pragma once

namespace wakelatch::host {

/// Its width in columns; 80 when standard output is no terminal or does not tell.
int terminalWidth();

}  // namespace wakelatch::host
