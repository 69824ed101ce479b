#include "Host/trace/Trace.h"

namespace wakelatch::host {

std::string traceKey(const std::vector<std::string>& globs) {
  std::string key;
  for (const std::string& glob : globs) key.append(key.empty() ? "" : " ").append(glob);
  return key;
}

}  // namespace wakelatch::host
