// Stand-in for the keep-awake tool: holds a lock of the session manager against sleep until it is
// ended or its watch is lost. Called with the tool's flag word; its process name is the tool's too,
// because the clean-up after a crash goes by the name.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string_view>
#include <thread>

#include "Host/linux/Logind.h"
#include "Host/linux/WatchProcess.h"

using wakelatch::host::WatchProcess;

int main(int argc, char** argv) {
  const std::string_view flags = argc == 2 ? argv[1] : "";
  const bool displayStaysAwake = flags == "-dimsu";
  if (!displayStaysAwake && flags != "-ims") {
    std::fputs("usage: caffeinate -dimsu | -ims\n", stderr);
    return 2;
  }

  // Ending is left to the signals' default action, which works at any moment, also in the middle of
  // a call on the bus. A parent may have left them blocked or ignored.
  sigset_t none;
  sigemptyset(&none);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) std::signal(signal, SIG_DFL);
  sigprocmask(SIG_SETMASK, &none, nullptr);

  try {
    // In a thread of its own: the call on the bus may take long. It ends without a word: this
    // process is in no terminal's foreground, and could be stopped by writing there, with its lock.
    std::thread([watch = WatchProcess(WatchProcess::namedID())] {
      watch.awaitLoss({});
      ::_exit(0);
    }).detach();
    wakelatch::host::Logind().inhibit(displayStaysAwake ? "sleep:handle-lid-switch:idle"
                                                        : "sleep:handle-lid-switch");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "caffeinate: cannot keep this system awake: %s\n", error.what());
    return 1;
  }
  for (;;) ::pause();
}
