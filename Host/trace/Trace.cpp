#include "Host/trace/Trace.h"

#include "Host/Terminal.h"

namespace wakelatch::host {

std::string traceKey(const std::vector<std::string>& globs) {
  return joined(globs, " ");
}

}  // namespace wakelatch::host
