// Stand-in for the keep-awake tool: holds a lock of the session manager against sleep until it is
// ended or its watch is lost. Called with the tool's flag word; its process name is the tool's too,
// because the clean-up after a crash goes by the name. Once it holds the lock it says so: one line
// on standard output, "ready" or what the lock does not cover.
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

/// Takes the best lock that is to be had and returns the word about it. Whoever has no session at
/// this computer, over ssh for one, is granted a lock against idling alone.
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

  // Ending is left to the signals' default action, which works at any moment, also in the middle of
  // a call on the bus. A parent may have left them blocked or ignored. Nobody who stops listening
  // costs the lock.
  sigset_t none;
  sigemptyset(&none);
  for (const int signal : {SIGTERM, SIGINT, SIGHUP}) std::signal(signal, SIG_DFL);
  std::signal(SIGPIPE, SIG_IGN);
  sigprocmask(SIG_SETMASK, &none, nullptr);

  try {
    // In a thread of its own: the call on the bus may take long. It ends without a word: this
    // process is in no terminal's foreground, and could be stopped by writing there, with its lock.
    std::thread([watch = WatchProcess(WatchProcess::namedID())] {
      watch.awaitLoss({});
      ::_exit(0);
    }).detach();
    // Not against the lid: that is lid-closed mode's own lock. Nor against idling when the display
    // may sleep, which is what an idle session's does.
    std::puts(takeLock(displayStaysAwake ? "sleep:idle" : "sleep"));
    std::fflush(stdout);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
  for (;;) ::pause();
}
