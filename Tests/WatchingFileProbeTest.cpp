#include "WakelatchCore/WatchingFileProbe.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <map>
#include <random>

#include "Platform/Descriptor.h"
#include "Tests/TemporaryDirectory.h"
#include "Tests/TouchFile.h"

namespace wakelatch {
namespace {

namespace fs = std::filesystem;
using ::testing::ContainerEq, ::testing::PrintToString;
using Strings = std::vector<std::string>;

constexpr Timestamp start{std::chrono::duration<double>(1'700'000'000.25)};

/// Both probes on one directory, and somebody who changes everything below and beside it.
class WatchingFileProbeTest : public ::testing::Test {
 protected:
  WatchingFileProbeTest() {
    fs::create_directories(home), fs::create_directories(outside);
    if (user != 0) return;
    for (const fs::path& path : {directory.path(), base, home, outside})
      fs::permissions(path, fs::perms(0777));
    if (::seteuid(65534) != 0) std::abort();  // no directory is closed to root
  }
  ~WatchingFileProbeTest() override { EXPECT_EQ(::seteuid(user), 0); }

  /// For messages that tell only what differs.
  static std::map<std::string, Timestamp> ordered(const ModificationsByPath& files) {
    return {files.begin(), files.end()};
  }

  unsigned below(std::size_t limit) { return static_cast<unsigned>(random() % limit); }

  /// Asks both the same.
  void expectSame(const Strings& patterns, const std::string& after_) {
    const std::string what = PrintToString(patterns) + " after " + after_;
    const auto files = walking.sessionModifications(patterns);
    ASSERT_THAT(ordered(watching->sessionModifications(patterns)), ContainerEq(ordered(files)))
        << what;
    ASSERT_EQ(watching->newestModification(patterns), walking.newestModification(patterns)) << what;
    const Timestamp since = after(start, below(100));
    ASSERT_EQ(watching->recentModifications(patterns, since),
              walking.recentModifications(patterns, since))
        << what;
  }

  /// Changes something, and says what.
  std::string change() {
    const fs::path path = somewhere(), other = somewhere();
    std::error_code ignored;
    const auto time = after(start, below(100));
    switch (below(12)) {
      case 0:
      case 1:
        if (!fs::is_directory(path.parent_path(), ignored) || fs::is_directory(path, ignored))
          return "";
        touchFile(path, time);
        return "a file " + path.string();
      case 2:
        fs::create_directories(path, ignored);
        return "a directory " + path.string();
      case 3:
        fs::rename(path, other, ignored);
        return "moving " + path.string() + " to " + other.string();
      case 4:
        fs::remove_all(path, ignored);
        return "removing " + path.string();
      case 5:
        fs::create_symlink(other, path, ignored);
        return "a link " + path.string() + " to " + other.string();
      case 6:
        if (isAsked) return "";  // a name that is made later goes unnoticed
        fs::create_hard_link(other, path, ignored);
        return "another name " + path.string() + " of " + other.string();
      case 7:
        fs::permissions(path, fs::perms(below(2) == 0 ? 0755 : 01 + 0100 * (below(8))), ignored);
        return "the permissions of " + path.string();
      case 8:
        held = platform::Descriptor(::open(path.c_str(), O_WRONLY | O_APPEND));
        return "opening " + path.string();
      case 9:
        return held.get() >= 0 && ::write(held.get(), "x", 1) == 1 ? "writing what is open" : "";
      case 10:
        if (below(8) != 0) return "";
        fs::rename(home, away, ignored);
        if (below(2) == 0) fs::create_directories(home, ignored);
        return "moving home away";
      default:
        fs::rename(away, home, ignored);
        return "moving home back";
    }
  }

  fs::path somewhere() {
    static const Strings names = {"a", "b", "ab", ".a", "a.x"};
    fs::path path = below(6) == 0 ? outside : home;
    for (auto levels = 1 + below(4); levels > 0; --levels) path /= names[below(names.size())];
    return path;
  }

  const uid_t user = ::geteuid();
  const TemporaryDirectory directory;
  const fs::path base = directory.path() / "1/2/3";  // so deep that no pattern leads out of it
  const fs::path home = base / "home", outside = base / "outside", away = base / "away";
  std::mt19937 random;
  platform::Descriptor held;
  bool isAsked = true;
  FileActivityProbe walking{home, 4};
  std::optional<WatchingFileProbe> watching{std::in_place, home, 4, 0};
};

TEST_F(WatchingFileProbeTest, AnswersAsAWalkWouldWhateverChanges) {
  const char* seeds = std::getenv("WAKELATCH_PROBE_SEEDS");  // more of them for a long run
  const Strings components = {"a", "b", "a*", "*.x", "**", "*", "..", ".a", "[ab]*"};
  for (unsigned seed = 1; seed <= (seeds ? unsigned(std::atoi(seeds)) : 20); ++seed) {
    random.seed(seed);
    watching.emplace(home, 4, 0);
    isAsked = false;
    for (int i = 0; i < 20; ++i) change();
    isAsked = true;
    std::vector<Strings> lists(3);
    for (Strings& patterns : lists) {
      for (auto count = 1 + below(3); count > 0; --count) {
        std::string& pattern = patterns.emplace_back();
        for (auto length = below(4); length > 0; --length)
          pattern += components[below(components.size())] + "/";
      }
    }
    for (int i = 0; i < 150; ++i) {
      std::string changes = "seed " + std::to_string(seed) + ", step " + std::to_string(i);
      for (auto count = below(3); count > 0; --count) changes += "; " + change();
      for (const Strings& patterns : lists) expectSame(patterns, changes);
      if (HasFatalFailure()) return;
    }
    ASSERT_EQ(watching->verify(60), 0U) << "seed " << seed;
  }
}

TEST_F(WatchingFileProbeTest, MoreChangesThanTheSystemKeepsAreFoundByWalking) {
  const Strings patterns = {"**/*.x"};
  touchFile(home / "a/1.x", start);
  expectSame(patterns, "the beginning");
  for (int i = 0; i < 9000; ++i) {
    std::ofstream(home / "a/2").close();
    fs::remove(home / "a/2");
  }
  touchFile(home / "a/3.x", start);
  expectSame(patterns, "18,000 changes and another file");
}

TEST_F(WatchingFileProbeTest, VerifyingFindsWhatTheSystemDoesNotTell) {
  const Strings patterns = {"a/*"};
  touchFile(home / "a/1", start), touchFile(home / "a/2", start);
  expectSame(patterns, "the beginning");
  fs::create_hard_link(home / "a/1", outside / "1");
  touchFile(outside / "1", after(start, 50));
  EXPECT_EQ(watching->newestModification(patterns), start);
  EXPECT_EQ(watching->verify(60), 1U);
  expectSame(patterns, "verifying");
  EXPECT_EQ(watching->verify(60), 0U);
}

}  // namespace
}  // namespace wakelatch
