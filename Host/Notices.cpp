#include "Host/Notices.h"

#include <unistd.h>

#include <iostream>

#include "Host/Terminal.h"

namespace wakelatch::host {

void printNotice(const std::string& text) {
  if (::isatty(STDERR_FILENO) == 1) std::cerr << "\r\033[K";
  std::cerr << "wakelatch: " << printable(text) << std::endl;
}

}  // namespace wakelatch::host
