// Prints what a program finds itself started with, then the bytes on its standard input.
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

int main() {
  sigset_t mask;
  sigprocmask(SIG_SETMASK, nullptr, &mask);
  for (int signal = 1; signal < 32; ++signal) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (sigismember(&mask, signal) != 0) std::printf("blocked %d\n", signal);
    if (action.sa_handler != SIG_DFL) std::printf("not default %d\n", signal);
  }
  for (int fd = 3; fd < 1024; ++fd) {
    if (fcntl(fd, F_GETFD) >= 0) std::printf("open %d\n", fd);
  }
  char directory[4096];
  std::printf("%s %s ", getenv("HOME"), getcwd(directory, sizeof directory));
  for (int c = std::getchar(); c != EOF; c = std::getchar()) std::putchar(c);
}
