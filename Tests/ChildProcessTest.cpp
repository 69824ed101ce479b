#include "Platform/ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <vector>

#include "Platform/Descriptor.h"

namespace wakelatch::platform {

TEST(ChildProcess, WorksWhereTheSystemGivesNoExitNotice) {
  rlimit limit{};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit few{32, limit.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &few);
  std::vector<Descriptor> fillers;  // none is left to watch a child with
  while (fillers.empty() || fillers.back().get() >= 0)
    fillers.emplace_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  ChildProcess child("/bin/sh", {"-c", "sleep 0.2; exit 7"}, ChildOutput::inherited);
  EXPECT_FALSE(child.awaitExit(0));
  EXPECT_TRUE(child.awaitExit(30));
  EXPECT_EQ(child.reap(), (ChildEnd{ChildEnd::Kind::exited, 7}));
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace wakelatch::platform
