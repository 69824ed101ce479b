// The two requests that the stand-ins make of the session manager (org.freedesktop.login1) on the
// system bus. Each call makes a connection of its own and may come from any thread; it throws
// std::runtime_error in the bus's own words. Nothing is logged. Neither asks for a password.
#pragma once

#include <string>

namespace wakelatch::host {

/// Where the session manager is found.
struct Logind {
  std::string busAddress = {};  ///< empty: DBUS_SYSTEM_BUS_ADDRESS, else the system's bus
  double timeoutSeconds = 10;   ///< for an answer; a stuck bus holds a call up twice as long

  /// Suspends the machine; returns once the request is accepted.
  void suspend() const;

  /// Takes a lock that blocks `what` (colon-separated, such as "sleep:idle"). The result is the
  /// lock: a descriptor, close-on-exec and the caller's to close. The kernel closes it with the
  /// process, so a lock never outlives its holder.
  int inhibit(const std::string& what) const;
};

}  // namespace wakelatch::host
