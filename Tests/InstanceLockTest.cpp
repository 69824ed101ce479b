// The lock of a watching host among other users, on poor file systems and under a running watch.
#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "Host/InstanceLock.h"
#include "Tests/HostProgram.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;

/// How taking the lock ends.
std::string taking(const fs::path& file) try {
  return InstanceLock(file).isHeld() ? "held" : "not held";
} catch (const NoPlaceForLock& error) {
  return std::string("no place: ") + error.what();
} catch (const std::system_error& error) {
  return std::string("refused: ") + error.what();
}

TEST(InstanceLock, AFileThatCannotBeOpenedIsNoWantOfAPlace) {
  constexpr uid_t user = 4242;
  if (::geteuid() != 0) GTEST_SKIP() << "root alone can be two users";
  const struct {
    uid_t directoryOwner, fileOwner;
    fs::perms mode;  ///< of the lock file; unknown: there is none
    std::string outcome;
  } rows[] = {{user, 0, fs::perms(0600), "refused: the lock file is that of root (stop"},
              {user, 2424, fs::perms(0600), "refused: the lock file is that of user 2424 (stop"},
              {user, user, fs::perms::none, "refused: the lock file is that of user 4242 (stop"},
              {user, 0, fs::perms(0644), "held"},
              {user, user, fs::perms::unknown, "held"},
              {0, user, fs::perms(0600), "held"},
              {0, 0, fs::perms(0600), "refused: the lock file is that of root (stop"},
              {0, 0, fs::perms::unknown, "no place: cannot make the lock file: "}};
  for (const auto& [directoryOwner, fileOwner, mode, outcome] : rows) {
    const TemporaryDirectory directory;
    const fs::path file = directory.path() / "watch.lock";
    fs::permissions(directory.path(), fs::perms(0755));
    if (mode != fs::perms::unknown) {
      writeFile(file, "");
      fs::permissions(file, mode);
      EXPECT_EQ(::chown(file.c_str(), fileOwner, 0), 0);
    }
    EXPECT_EQ(::chown(directory.path().c_str(), directoryOwner, 0), 0);
    EXPECT_EQ(::seteuid(user), 0);
    const std::string seen = taking(file);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_THAT(seen, testing::StartsWith(outcome));
  }
}

/// Has flock() fail in this process from now on, as on a file system that has none.
void failFlock(int error) {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_flock, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<unsigned>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
  const sock_fprog filter{std::size(program), program};
  ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
  if (::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) std::_Exit(2);
}

TEST(InstanceLockDeathTest, AFileSystemWithoutLocksIsNoPlace) {
  const TemporaryDirectory directory;
  const fs::path file = directory.path() / "watch.lock";
  const InstanceLock held(file);
  for (const int error : {ENOLCK, EOPNOTSUPP, EINVAL, EIO}) {
    const auto check = [&] {
      failFlock(error);
      std::cerr << taking(file) << InstanceLock::currentHolder(file).has_value();
      std::_Exit(0);
    };
    EXPECT_EXIT(check(), testing::ExitedWithCode(0),
                error == EIO ? "^refused: cannot lock: .*0$"
                             : "^no place: a file system without locks .*0$");
  }
}

TEST(InstanceLock, ALockThatWasRemovedIsTakenAnewUnlessAnotherWatchHasIt) {
  const TemporaryDirectory directory;
  const fs::path place = directory.path() / "place", file = place / "watch.lock";
  InstanceLock lock(file);
  const auto isLocked = [&] { return InstanceLock::currentHolder(file) == ::getpid(); };
  EXPECT_EQ(lock.keep(), "");
  const std::function<void()> removals[] = {
      [&] { fs::remove(file); }, [&] { fs::remove_all(place); },
      [&] { fs::rename(file, place / "moved"); }, [&] { platform::writeAtomically(file, "7"); }};
  for (const auto& remove : removals) {
    remove();
    EXPECT_FALSE(isLocked());
    EXPECT_THAT(lock.keep(), testing::HasSubstr("locked anew"));
    EXPECT_TRUE(isLocked());
    EXPECT_EQ(lock.keep(), "");
  }
  fs::rename(place, directory.path() / "moved");
  writeFile(place, "no directory");
  EXPECT_THAT(lock.keep(), testing::HasSubstr("; watching on without it"));
  EXPECT_EQ(lock.keep(), "") << "told once";
  fs::remove(place);
  const InstanceLock other(file);
  EXPECT_THROW(lock.keep(), std::runtime_error);
  EXPECT_TRUE(isLocked()) << "the other's";
}

}  // namespace
}  // namespace wakelatch::host
