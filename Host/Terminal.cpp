#include "Host/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace wakelatch::host {

int terminalWidth() {
  winsize size{};
  const bool isKnown = ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 1;
  return isKnown ? size.ws_col : 80;
}

}  // namespace wakelatch::host
