#include "Platform/ExitNotice.h"

#include <sys/event.h>

#include <ctime>

namespace wakelatch::platform {

ExitNotice::ExitNotice(std::int32_t childId)
    : descriptor_(aboveStandardStreams(Descriptor(::kqueue()))) {
  struct kevent change;
  EV_SET(&change, static_cast<uintptr_t>(childId), EVFILT_PROC, EV_ADD, NOTE_EXIT | NOTE_EXITSTATUS,
         0, nullptr);
  if (::kevent(descriptor(), &change, 1, nullptr, 0, nullptr) != 0) descriptor_.close();
}

std::optional<int> ExitNotice::waitStatus() const {
  struct kevent event;
  const timespec atOnce{};
  if (::kevent(descriptor(), nullptr, 0, &event, 1, &atOnce) != 1 ||
      (event.fflags & NOTE_EXITSTATUS) == 0) {
    return std::nullopt;
  }
  return static_cast<int>(event.data);
}

}  // namespace wakelatch::platform
