// The file probe on trees of session files, against find on the same tree in the same run. The best
// of alternating runs counts: what else the machine does only ever adds time.
#include <stdlib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "WakelatchCore/FileActivityProbe.h"

namespace {

namespace fs = std::filesystem;
using wakelatch::FileActivityProbe;
using Task = std::function<void()>;

constexpr int filesPerFolder = 50;
constexpr int foldersPerFolder = 20;

/// Folders within folders, all files as agents name theirs.
void makeTree(const fs::path& root, int files) {
  int folders = files / filesPerFolder;
  std::vector<fs::path> level = {root};
  while (folders > 0) {
    std::vector<fs::path> next;
    for (const fs::path& parent : level) {
      for (int i = 0; i < foldersPerFolder && folders > 0; ++i, --folders) {
        const fs::path folder = parent / ("-Users-somebody-projects-" + std::to_string(i));
        fs::create_directories(folder);
        for (int file = 0; file < filesPerFolder; ++file) {
          char name[64];
          std::snprintf(name, sizeof name, "%08x-77aa-4c1b-9a5e-0123456789ab.jsonl", file * 7919);
          std::ofstream(folder / name) << "{}";
        }
        next.push_back(folder);
      }
    }
    level = std::move(next);
  }
}

double secondsOf(const Task& task) {
  const auto start = std::chrono::steady_clock::now();
  task();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// The best time of each task, run in turns.
std::vector<double> best(const std::vector<Task>& tasks, int rounds) {
  std::vector<double> seconds(tasks.size(), std::numeric_limits<double>::infinity());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < tasks.size(); ++i) {
      seconds[i] = std::min(seconds[i], secondsOf(tasks[i]));
    }
  }
  return seconds;
}

void report(const std::string& what, double mine, double other, double goal) {
  std::printf("%-60s %9.2f ms / %9.2f ms  ratio %.2f (goal at most %.1f)\n", what.c_str(),
              mine * 1e3, other * 1e3, mine / other, goal);
}

/// Prints the comparisons on one tree; returns the seconds per file of the plain search.
double measure(const fs::path& root, int files, int rounds) {
  const std::string label = std::to_string(files) + " files: ";
  makeTree(root, files);
  const FileActivityProbe probe(root, 64);
  const auto newest = [&](const std::string& pattern) {
    return [&probe, pattern] {
      if (!probe.newestModification({pattern})) std::abort();
    };
  };
  const std::string find =
      "find '" + root.string() + "' -name '*.jsonl' -printf '%T@\\n' >/dev/null";
  const std::vector<double> seconds =
      best({
               newest("**/*.jsonl"),
               [&] {
                 if (std::system(find.c_str()) != 0) std::abort();
               },
               newest("**/**/**/**/**/**/*.jsonl"),
               newest("**/*-*/**/*-*/**/**/**/**/*.jsonl"),
               [&] {
                 if (probe.sessionModifications({"**/*.jsonl"}).size() != std::size_t(files)) {
                   std::abort();
                 }
               },
           },
           rounds);
  report(label + "newest of **/*.jsonl, against find", seconds[0], seconds[1], 0.7);
  report(label + "six ** in a row, against one", seconds[2], seconds[0], 1.5);
  report(label + "six ** with folders between, against one", seconds[3], seconds[0], 1.5);
  report(label + "all paths with times, against newest", seconds[4], seconds[0], 1.7);
  return seconds[0] / files;
}

}  // namespace

int main() {
  std::string folder = (fs::temp_directory_path() / "wakelatch-probe.XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return 1;
  const double small = measure(folder + "/small", 20'000, 15);
  const double large = measure(folder + "/large", 200'000, 7);
  report("per 1,000 files, at 200,000 against 20,000", large * 1e3, small * 1e3, 1.4);
  fs::remove_all(folder);
}
