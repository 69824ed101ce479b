// The file probe on trees of session files, compared with find on the same tree, and with itself on
// more patterns or files.
#include <malloc.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Benchmarks/SideBySide.h"
#include "WakelatchCore/FileActivityProbe.h"
#include "WakelatchCore/WatchingFileProbe.h"

namespace {

namespace fs = std::filesystem;
using wakelatch::FileActivityProbe, wakelatch::WatchingFileProbe;
using wakelatch::bench::compare;
using wakelatch::bench::Side;

constexpr int filesPerDirectory = 100;
constexpr int directoriesPerDirectory = 20;

/// A tree of nested directories, with files named like agents' session files.
void makeTree(const fs::path& root, int files) {
  int directories = files / filesPerDirectory;
  std::vector<fs::path> level = {root};
  while (directories > 0) {
    std::vector<fs::path> next;
    for (const fs::path& parent : level) {
      for (int i = 0; i < directoriesPerDirectory && directories > 0; ++i, --directories) {
        const fs::path directory = parent / ("-Users-somebody-project-" + std::to_string(i));
        fs::create_directories(directory);
        for (int file = 0; file < filesPerDirectory; ++file) {
          char name[64];
          std::snprintf(name, sizeof name, "%08x-77aa-4c1b-9a5e-0123456789ab.jsonl", file * 7919);
          std::ofstream(directory / name) << "{}";
        }
        next.push_back(directory);
      }
    }
    level = std::move(next);
  }
}

/// Microseconds per file of `work`, which returns whether its result is right.
template <class Work>
Side costPerFile(int files, Work work) {
  return [=] {
    const auto start = std::chrono::steady_clock::now();
    if (!work()) std::abort();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() * 1e6 /
           files;
  };
}

class Tree {
 public:
  Tree(const fs::path& root, int files) : root_(root), files_(files), probe_(root, 64) {
    makeTree(root, files);
  }

  Side newest(const std::string& pattern) const {
    return costPerFile(
        files_, [this, pattern] { return probe_.newestModification({pattern}).has_value(); });
  }
  Side allPaths() const {
    return costPerFile(files_, [this] {
      return probe_.sessionModifications({"**/*.jsonl"}).size() == std::size_t(files_);
    });
  }
  Side find() const {
    const std::string command =
        "find '" + root_.string() + "' -name '*.jsonl' -printf '%T@\\n' >/dev/null";
    return costPerFile(files_, [command] { return std::system(command.c_str()) == 0; });
  }

  Side firstWatch() const {
    return [this] {
      const WatchingFileProbe probe(root_, 64);
      return costPerFile(files_,
                         [&] { return probe.newestModification({"**/*.jsonl"}).has_value(); })();
    };
  }
  /// Bytes of heap per file that a watching probe keeps.
  double bytesPerFile() const {
    const std::size_t before = ::mallinfo2().uordblks;
    const WatchingFileProbe probe(root_, 64);
    probe.newestModification({"**/*.jsonl"});
    return static_cast<double>(::mallinfo2().uordblks - before) / files_;
  }

  void compareAll() const {
    std::printf("%d files\n", files_);
    const Side one = newest("**/*.jsonl");
    compare("newest of **/*.jsonl, against find", "us per file", one, find(), 0.7);
    compare("first walk of the watching probe, against find", "us per file", firstWatch(), find(),
            0.7);
    std::printf("memory of the watching probe: %.0f bytes per file (goal at most 200)\n",
                bytesPerFile());
    compare("six ** in a row, against one", "us per file", newest("**/**/**/**/**/**/*.jsonl"), one,
            1.5);
    compare("six ** with names between, against one", "us per file",
            newest("**/*-*/**/*-*/**/**/**/**/*.jsonl"), one, 1.5);
    compare("all paths with times, against newest only", "us per file", allPaths(), one, 1.7);
  }

 private:
  const fs::path root_;
  const int files_;
  const FileActivityProbe probe_;
};

}  // namespace

int main() {
  std::string directory = (fs::temp_directory_path() / "wakelatch.XXXXXX").string();
  if (::mkdtemp(directory.data()) == nullptr) return 1;
  {
    const Tree small(directory + "/small", 20'000), large(directory + "/large", 200'000);
    small.compareAll();
    large.compareAll();
    compare("200,000 files against 20,000", "us per file", large.newest("**/*.jsonl"),
            small.newest("**/*.jsonl"), 1.4);
  }
  fs::remove_all(directory);
}
