// The keep-awake tool on Linux: holds a lock of the session manager against sleep until it is ended
// or its watch ends or stops. It takes the flags of the macOS tool and has its name, because the
// clean-up after a crash looks for that name. Once it holds the lock it prints one line, "ready" or
// what the lock does not cover.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>
#include <thread>

#include "Host/linux/Logind.h"
#include "Host/linux/WatchProcess.h"

using wakelatch::host::Logind, wakelatch::host::LogindRefusal, wakelatch::host::WatchProcess;

namespace {

/// Takes the best lock that is permitted and returns the line to be printed about it. A user
/// without a session at this computer, such as over ssh, may only take a lock against idling.
const char* takeLock(const char* what) {
  try {
    Logind().inhibit(what);
    return "ready";
  } catch (const LogindRefusal& refusal) {
    try {
      Logind().inhibit("idle");
    } catch (const LogindRefusal&) {
      throw std::runtime_error(std::string("this needs a session at this computer (") +
                               refusal.what() + ")");
    }
    return "without a session at this computer only sleep for want of activity is held off (the "
           "display's too), not one that is asked for";
  }
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view flags = argc == 2 ? argv[1] : "";
  const bool displayStaysAwake = flags == "-dimsu";
  if (!displayStaysAwake && flags != "-ims") {
    std::fputs("usage: caffeinate -dimsu | -ims\n", stderr);
    return 2;
  }

  // The signals' default action ends the process at any moment, even during a call on the bus; the
  // parent may have left the signals blocked or ignored. SIGPIPE is ignored, so that the lock is
  // not lost when nobody reads the output.
  sigset_t none;
  sigemptyset(&none);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) std::signal(signal, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
  sigprocmask(SIG_SETMASK, &none, nullptr);

  try {
    // In a thread of its own, as the call on the bus may take long. It prints nothing when it ends
    // the process: a background process that writes to a terminal may be stopped, and would keep
    // its lock.
    std::thread([watch = WatchProcess(WatchProcess::namedID())] {
      watch.awaitLoss({});
      ::_exit(0);
    }).detach();
    // The lid has a lock of its own, see LoginManager::takeLidLock(). Idling is not blocked if the
    // display may sleep, because the display sleeps when the session is idle.
    std::puts(takeLock(displayStaysAwake ? "sleep:idle" : "sleep"));
    std::fflush(stdout);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  for (;;) ::pause();
}
