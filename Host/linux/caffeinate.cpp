// Stand-in for the keep-awake tool: holds a lock of the session manager against sleep until it is
// ended. Called with the tool's flag word; its process name is the tool's too, because the
// clean-up after a crash goes by the name.
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <string_view>

#include "Host/linux/Logind.h"

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
    wakelatch::host::Logind().inhibit(displayStaysAwake ? "sleep:handle-lid-switch:idle"
                                                        : "sleep:handle-lid-switch");
  } catch (const std::exception& error) {
    std::fprintf(stderr, "caffeinate: cannot keep this system awake: %s\n", error.what());
    return 1;
  }
  for (;;) ::pause();
}
