// The requests that the stand-ins make of the session manager (org.freedesktop.login1) on the
// system bus. Each call makes a connection of its own and may come from any thread; it throws
// std::runtime_error in the bus's own words. Nothing is logged, and nothing asks for a password.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace wakelatch::host {

/// There is no bus, or no session manager on it.
struct NoSessionManager : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The session manager, or the bus, is there and has not answered in time.
struct LogindSilence : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The session manager does not grant this to this user here: mostly for want of a session at the
/// computer itself.
struct LogindRefusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A lock as the session manager lists it.
struct Inhibitor {
  std::string what;  ///< colon-separated: "sleep:idle"
  std::string who;   ///< the holder as it names itself
  std::string why;
  std::string mode;  ///< "block", "block-weak" or "delay"
  std::uint32_t uid = 0;
  std::uint32_t pid = 0;

  bool holdsOff(const std::string& kind) const {
    return mode.starts_with("block") && (":" + what + ":").find(":" + kind + ":") != what.npos;
  }
};

/// Where the session manager is found.
struct Logind {
  /// As which our locks are listed.
  static constexpr const char* who = "Wakelatch";

  std::string busAddress = {};  ///< empty: DBUS_SYSTEM_BUS_ADDRESS, else the system's bus
  double timeoutSeconds = 10;   ///< for an answer; a stuck bus holds a call up twice as long

  /// Suspends the machine; returns once the request is accepted. Fails, naming the holder, while
  /// somebody else's lock holds sleep off: the session manager itself would overrule those of the
  /// same user, and for root everybody's.
  void suspend() const;

  /// Takes a lock that blocks `what` (colon-separated, such as "sleep:idle"). The result is the
  /// lock: a descriptor, close-on-exec and the caller's to close. The kernel closes it with the
  /// process, so a lock never outlives its holder.
  int inhibit(const std::string& what) const;

  /// The locks that are held now, by anybody.
  std::vector<Inhibitor> inhibitors() const;
};

}  // namespace wakelatch::host
