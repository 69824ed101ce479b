// A keep-awake tool for tests: writes its argument to a file named after its id in the folder
// WAKELATCH_TEST_READY, then runs until a signal ends it; not SIGTERM where
// WAKELATCH_TEST_IGNORE_TERM is set.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

int main(int, char** argv) {
  const std::filesystem::path folder = getenv("WAKELATCH_TEST_READY");
  if (getenv("WAKELATCH_TEST_IGNORE_TERM") != nullptr) signal(SIGTERM, SIG_IGN);
  std::ofstream(folder / "new") << argv[1];
  std::filesystem::rename(folder / "new", folder / std::to_string(getpid()));
  for (;;) pause();
}
