#include "Platform/Thread.h"

#include <pthread.h>
#include <signal.h>

#include <utility>

namespace wakelatch::platform {
namespace {

void nameThisThread(const std::string& name) {
#ifdef __APPLE__
  ::pthread_setname_np(name.c_str());
#else
  constexpr std::size_t limit = 15;  // a longer name is refused, not cut
  ::pthread_setname_np(::pthread_self(), name.substr(0, limit).c_str());
#endif
}

}  // namespace

std::thread startThread(const std::string& name, std::function<void()> body) {
  // A new thread inherits the mask. The host's handlers must not run on it, and a signal that
  // should interrupt a wait of the host must not be swallowed here.
  sigset_t all, before;
  sigfillset(&all);
  // A fault on the thread itself must reach whoever reports crashes.
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT}) {
    sigdelset(&all, fault);
  }
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  try {
    std::thread thread([name, body = std::move(body)] {
      nameThisThread(name);
      body();
    });
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return thread;
  } catch (...) {
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    throw;
  }
}

}  // namespace wakelatch::platform
