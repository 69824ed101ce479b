#include "Host/linux/Logind.h"

#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <system_error>

namespace wakelatch::host {
namespace {

struct CloseBus {
  void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, CloseBus>;

struct ReleaseMessage {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, ReleaseMessage>;

/// `result` of an sd-bus function; throws if it is a negative errno.
int checked(int result, const char* what) {
  if (result >= 0) return result;
  throw std::runtime_error(std::string(what) + ": " + std::generic_category().message(-result));
}

Bus connect(const Logind& logind) {
  const char* address = logind.busAddress.c_str();
  if (*address == '\0') address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  if (address == nullptr) address = "unix:path=/run/dbus/system_bus_socket";

  sd_bus* created = nullptr;
  checked(sd_bus_new(&created), "no bus");
  Bus bus(created);
  checked(sd_bus_set_address(created, address), "unusable bus address");
  checked(sd_bus_set_bus_client(created, true), "no bus");
  const auto microseconds = static_cast<std::uint64_t>(logind.timeoutSeconds * 1e6);
  checked(sd_bus_set_method_call_timeout(created, microseconds), "no bus");
  if (const int result = sd_bus_start(created); result < 0) {
    throw NoSessionManager("no system bus: " + std::generic_category().message(-result));
  }
  return bus;
}

/// Calls a method of the manager object and returns its reply. Does not start a manager that is not
/// running: without systemd the bus would wait for it until the time-out.
template <class... Arguments>
Message callManager(const Bus& bus, const char* member, const char* types, Arguments... arguments) {
  sd_bus_message* created = nullptr;
  checked(sd_bus_message_new_method_call(bus.get(), &created, "org.freedesktop.login1",
                                         "/org/freedesktop/login1",
                                         "org.freedesktop.login1.Manager", member),
          member);
  const Message call(created);
  checked(sd_bus_message_set_auto_start(created, 0), member);
  checked(sd_bus_message_append(created, types, arguments...), member);
  sd_bus_error error{};
  sd_bus_message* reply = nullptr;
  const int result = sd_bus_call(bus.get(), created, 0, &error, &reply);
  if (result >= 0) return Message(reply);
  const bool isMissing = sd_bus_error_has_name(&error, SD_BUS_ERROR_SERVICE_UNKNOWN) != 0 ||
                         sd_bus_error_has_name(&error, SD_BUS_ERROR_NAME_HAS_NO_OWNER) != 0;
  std::string cause = std::string("logind ") + member + ": ";
  cause += error.message != nullptr ? error.message : std::generic_category().message(-result);
  sd_bus_error_free(&error);
  if (isMissing) throw NoSessionManager("no session manager (logind) runs");
  if (result == -EACCES || result == -EPERM) throw LogindRefusal(cause);
  if (result == -ETIMEDOUT) throw LogindSilence(cause);
  throw std::runtime_error(cause);
}

std::vector<Inhibitor> inhibitorsOn(const Bus& bus) {
  const Message reply = callManager(bus, "ListInhibitors", "");
  std::vector<Inhibitor> found;
  checked(sd_bus_message_enter_container(reply.get(), 'a', "(ssssuu)"), "logind ListInhibitors");
  const char *what = "", *who = "", *why = "", *mode = "";
  for (Inhibitor lock; checked(sd_bus_message_read(reply.get(), "(ssssuu)", &what, &who, &why,
                                                   &mode, &lock.uid, &lock.pid),
                               "logind ListInhibitors") > 0;) {
    lock.what = what, lock.who = who, lock.why = why, lock.mode = mode;
    found.push_back(lock);
  }
  return found;
}

}  // namespace

std::vector<Inhibitor> Logind::inhibitors() const {
  return inhibitorsOn(connect(*this));
}

void Logind::suspend() const {
  const Bus bus = connect(*this);
  for (const Inhibitor& lock : inhibitorsOn(bus)) {
    // Our own tool has just ended, but its lock may still be listed.
    const bool isOurs = lock.who == who && lock.uid == ::geteuid();
    if (isOurs || !lock.holdsOff("sleep")) continue;
    throw std::runtime_error("held off by " + lock.who + " (process " + std::to_string(lock.pid) +
                             " of user " + std::to_string(lock.uid) + "): " + lock.why);
  }
  callManager(bus, "Suspend", "b", 0);
}

int Logind::inhibit(const std::string& what) const {
  const Bus bus = connect(*this);
  const Message reply = callManager(bus, "Inhibit", "ssss", what.c_str(), who,
                                    "Keeping this computer awake", "block");
  int lock = -1;  // owned by the reply
  checked(sd_bus_message_read(reply.get(), "h", &lock), "logind Inhibit");
  const int kept = ::fcntl(lock, F_DUPFD_CLOEXEC, 3);
  if (kept < 0) throw std::system_error(errno, std::generic_category(), "logind Inhibit");
  return kept;
}

}  // namespace wakelatch::host
