#include "Host/Saver.h"

#include <string>
#include <system_error>

namespace wakelatch::host {

void Saver::save(const Newest& newest) {
  if (newest.state) {
    try {
      writeWatchState(*newest.state);
      notifier_.problem("state", "");
    } catch (const std::system_error& error) {
      notifier_.problem("state", std::string("cannot tell `status`: ") + error.what());
    }
  }
  if (newest.usage) notifier_.problem("usage", store_.save(*newest.usage));
}

}  // namespace wakelatch::host
