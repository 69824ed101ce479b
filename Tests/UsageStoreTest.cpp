#include "Host/UsageStore.h"

#include <gmock/gmock.h>
#include <sys/resource.h>

#include <array>
#include <csignal>
#include <fstream>

#include "Platform/Files.h"
#include "Tests/TemporaryDirectory.h"

namespace wakelatch::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

const Timestamp created = *platform::parseIso8601("2025-03-01T14:05:09Z");

class UsageStoreTest : public testing::Test {
 protected:
  UsageStoreTest() {
    metrics_.days["2025-03-01"].protectedSeconds = 0.1;
    metrics_.lastTickAt = after(created, 1.0 / 3);
  }

  const TemporaryDirectory directory_;
  const fs::path file_ = directory_.path() / "made" / "usage.json";
  UsageStore store_{file_};
  UsageMetrics metrics_{created};
};

TEST_F(UsageStoreTest, SetsADamagedFileAside) {
  fs::create_directories(file_.parent_path());
  const std::string name = "usage.json.damaged-2025-03-01T140509Z";
  for (const auto& [text, problem, aside] :
       {std::array{R"({"installDate":)", "not JSON", ""},
        std::array{R"({"days":{}})", "installDate: missing", "-2"}}) {
    std::ofstream(file_) << text;
    UsageStore store(file_);
    const auto opened = store.open(created);
    EXPECT_THAT(opened.notice, HasSubstr(file_.string() + ": " + problem));
    EXPECT_THAT(opened.notice, HasSubstr("set aside as " + name + aside));
    EXPECT_EQ(platform::readFile(file_.parent_path() / (name + aside)), text);
    EXPECT_EQ(opened.metrics, UsageMetrics(created));
    EXPECT_EQ(store.save(metrics_), "");
    EXPECT_EQ(loadUsage(file_), metrics_);
  }
}

TEST_F(UsageStoreTest, FullDiskKeepsTheOldFile) {
  EXPECT_EQ(store_.open(created).metrics, UsageMetrics(created));
  EXPECT_FALSE(fs::exists(file_));
  EXPECT_EQ(store_.save(metrics_), "");
  UsageMetrics large = metrics_;
  for (int i = 0; i < 100; ++i) large.days[std::to_string(i)];

  rlimit limit{};
  ::getrlimit(RLIMIT_FSIZE, &limit);
  const rlimit small{4096, limit.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  ::setrlimit(RLIMIT_FSIZE, &small);
  const std::string problem = store_.save(large);
  ::setrlimit(RLIMIT_FSIZE, &limit);
  std::signal(SIGXFSZ, handler);

  EXPECT_THAT(problem, HasSubstr("cannot write " + file_.string()));
  EXPECT_EQ(loadUsage(file_), metrics_);
  EXPECT_EQ(std::distance(fs::directory_iterator(file_.parent_path()), {}), 1) << "no scraps";
  EXPECT_EQ(store_.save(large), "");
  EXPECT_EQ(loadUsage(file_), large);
  large.sessionRunSeconds = std::numeric_limits<double>::infinity();
  EXPECT_THAT(store_.save(large), HasSubstr("not finite"));
}

}  // namespace
}  // namespace wakelatch::host
