// Requests to the session manager (org.freedesktop.login1) on the system bus. Each call makes a
// connection of its own, blocks and may come from any thread. Failures throw std::runtime_error
// with the bus's message; nothing is logged, and nothing prompts for a password.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace wakelatch::host {

/// There is no system bus, or no session manager on it.
struct NoSessionManager : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The session manager or the bus exists but has not answered in time.
struct LogindSilence : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The session manager does not permit the request, usually because the user has no session at the
/// computer itself.
struct LogindRefusal : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// A lock as the session manager lists it.
struct Inhibitor {
  std::string what;  ///< colon-separated: "sleep:idle"
  std::string who;   ///< the name that the holder gave itself
  std::string why;
  std::string mode;  ///< "block", "block-weak" or "delay"
  std::uint32_t uid = 0;
  std::uint32_t pid = 0;

  bool holdsOff(const std::string& kind) const {
    return mode.starts_with("block") && (":" + what + ":").find(":" + kind + ":") != what.npos;
  }
};

/// A client of the session manager.
struct Logind {
  /// The holder's name in our locks.
  static constexpr const char* who = "Wakelatch";

  std::string busAddress = {};  ///< empty: DBUS_SYSTEM_BUS_ADDRESS, else the system's bus
  double timeoutSeconds = 10;  ///< for an answer; with a stuck bus a call takes up to twice as long

  /// Suspends the machine; returns once the request is accepted. Fails, naming the holder, while a
  /// lock of another program blocks sleep: the session manager itself would ignore locks of the
  /// same user and, for root, all locks.
  void suspend() const;

  /// Takes a lock that blocks `what` (colon-separated, such as "sleep:idle"). Returns the lock: a
  /// close-on-exec descriptor that the caller has to close. A lock ends with the process that holds
  /// it.
  int inhibit(const std::string& what) const;

  /// All locks that are held now, by any program.
  std::vector<Inhibitor> inhibitors() const;
};

}  // namespace wakelatch::host
