// An open file descriptor, closed at the end of its scope. Not for use by several threads at once.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

namespace wakelatch::platform {

class Descriptor {
 public:
  /// Takes over `fd`; a negative one stands for none.
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      close();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }

  int get() const { return fd_; }
  /// False with errno set when the system reports a late write error.
  bool close() { return fd_ < 0 || ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

/// `descriptor` or a duplicate of it above the standard streams, where launching a child neither
/// overwrites it nor hands it on, even when the host runs with its own standard streams closed.
/// None with errno set when there are no more descriptors.
inline Descriptor aboveStandardStreams(Descriptor descriptor) {
  if (descriptor.get() < 0 || descriptor.get() > 2) return descriptor;
  return Descriptor(::fcntl(descriptor.get(), F_DUPFD_CLOEXEC, 3));
}

struct Pipe {
  Descriptor readEnd, writeEnd;
};

/// A pipe whose ends no child inherits. Throws std::system_error. In ChildSystem.*.cpp.
Pipe openPipe();

}  // namespace wakelatch::platform
