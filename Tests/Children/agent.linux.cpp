// Stands for an agent: `agent busy`, `agent titled TITLE`; anything else just stays. Ends with the
// test that started it, and by itself after a minute.
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  alarm(60);
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "titled") {
    // As language runtimes do it: the name, and the title over the memory of the arguments.
    const std::string title = argv[2];
    char* const end = argv[argc - 1] + std::strlen(argv[argc - 1]);
    std::memset(argv[0], 0, static_cast<std::size_t>(end - argv[0]));
    std::memcpy(argv[0], title.data(), title.size());
    prctl(PR_SET_NAME, title.c_str());
  }
  for (volatile unsigned long turns = 0; mode == "busy";) turns = turns + 1;
  for (;;) pause();
}
