#include "WakelatchCore/FileActivityProbe.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <limits>

#include "Tests/TemporaryDirectory.h"
#include "Tests/TouchFile.h"

namespace wakelatch {
namespace {

namespace fs = std::filesystem;
using ::testing::PrintToString, ::testing::UnorderedElementsAreArray;
using Strings = std::vector<std::string>;

constexpr Timestamp start{std::chrono::duration<double>(1'700'000'000.25)};

class FileActivityProbeTest : public ::testing::Test {
 protected:
  void touch(const std::string& file, double seconds = 0) {
    touchFile(home / file, after(start, seconds));
  }
  std::optional<Timestamp> newest(const Strings& patterns, std::int64_t maxDepth = 999) {
    return FileActivityProbe(home, maxDepth).newestModification(patterns);
  }

  const TemporaryDirectory directory;
  const fs::path home = directory.path();
};

TEST_F(FileActivityProbeTest, MatchesWhatThePatternsSay) {
  const std::string longest = "/a/" + std::string(249, 'n') + ".jsonl";
  const Strings jsonl = {"/a/.2.jsonl", "/a/odd\n\xff.jsonl", longest};
  for (const std::string& file : jsonl) touch(file.substr(1));
  touch("a/3.JSONL"), touch("q[1]?.log"), touch("q1x.log", 0.5);
  fs::create_symlink("nowhere", home / "link");
  constexpr auto unlimited = std::numeric_limits<std::int64_t>::max();
  const std::tuple<Strings, std::int64_t, Strings> rows[] = {
      {{"", "~/", "//"}, 0, {""}},
      {{"", "*", "**/q1x.log"}, -1, {}},
      {{"~/a//*.jsonl/", "/a/*.jsonl"}, 2, jsonl},
      {{"**/*.jsonl"}, unlimited, jsonl},
      {{"a/../q*[x].log", "li*"}, 9, {"/a/../q1x.log", "/link"}},
      {{"q[1]?.log", "~/~/a", std::string("a\0b", 3)}, 9, {"/q[1]?.log"}},
      {{"q1x.log/**", "q1x.log/*", "*/*/x", "missing/**/*"}, 9, {"/q1x.log"}}};
  for (const auto& [patterns, maxDepth, matches] : rows) {
    const FileActivityProbe probe(home / "", maxDepth);
    Strings found;
    for (const auto& [path, time] : probe.sessionModifications(patterns))
      found.push_back(path.substr(home.string().size()));
    EXPECT_THAT(found, UnorderedElementsAreArray(matches)) << PrintToString(patterns);
  }
  EXPECT_EQ(newest({"missing*", "q1x.log", "q[1]?.log"}), after(start, 0.5));
  EXPECT_GT(newest({"q*", "link"}), after(start, 1)) << "a link's own time";
}

TEST_F(FileActivityProbeTest, ManyWaysToOneDirectoryCostNoMoreThanOne) {
  std::string path, pattern;
  for (int level = 0; level < 30; ++level) path += "d/";
  for (int i = 0; i < 12; ++i) pattern += "**/*/";  // 10^9 ways
  touch(path + "x.jsonl");
  EXPECT_EQ(newest({pattern + "*.jsonl", "**/d/d/*.jsonl"}), start);
}

TEST_F(FileActivityProbeTest, DirectoriesThatMayNotBeListedLeadOnByName) {
  touch("locked/x.jsonl"), touch("locked/sub/y.jsonl", 1), touch("shut/z.jsonl", 2);
  const auto permit = [this](const char* name, unsigned mode) {
    fs::permissions(home / name, fs::perms(mode));
  };
  permit("", 0755), permit("locked", 0311), permit("shut", 0);
  const auto user = ::geteuid();
  EXPECT_EQ(::seteuid(user == 0 ? 65534 : user), 0) << "no directory is closed to root";
  EXPECT_EQ(newest({"locked/*.jsonl", "shut/z.jsonl", "**/z.jsonl"}), std::nullopt);
  EXPECT_EQ(newest({"**/x.jsonl"}), start);
  EXPECT_EQ(newest({"locked/sub/*"}), after(start, 1));
  EXPECT_EQ(::seteuid(user), 0);
  permit("locked", 0700), permit("shut", 0700);
}

}  // namespace
}  // namespace wakelatch
