#include "Platform/ChildProcess.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <vector>

#include "Platform/Descriptor.h"
#include "Platform/WatchedChild.h"

namespace wakelatch::platform {
namespace {

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
  EXPECT_EQ(child.reap(), 7);
  ::setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(WatchedChild, IsReapedTheMomentItEndsAndNotSignalledAfterwards) {
  const auto child = WatchedChild::start("/bin/sleep", {"60"});
  EXPECT_TRUE(child->isRunning());
  EXPECT_FALSE(child->awaitExit(0));
  ::kill(child->id(), SIGKILL);
  EXPECT_TRUE(child->awaitExit(30));
  EXPECT_FALSE(child->isRunning());
  EXPECT_EQ(::kill(child->id(), 0), -1);  // not even a zombie
  child->send(SIGKILL);
}

}  // namespace
}  // namespace wakelatch::platform
