// Path patterns over small real trees, against a plain walk. The input is a line of two digits (the
// tree and the depth), then one pattern per line.
#include <fnmatch.h>

#include <algorithm>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "Fuzz/Fuzz.h"
#include "Platform/Directory.h"
#include "Tests/TemporaryDirectory.h"
#include "Tests/TouchFile.h"
#include "WakelatchCore/FileActivityProbe.h"

using namespace wakelatch;
using fuzz::require;
namespace fs = std::filesystem;

namespace {

using Strings = std::vector<std::string>;

/// Trees of files, directories and links to directories, including loops.
class Trees : public TemporaryDirectory {
 public:
  static constexpr unsigned count = 8;

  Trees() {
    std::mt19937 random(20250301);
    const auto oneOf = [&random](const auto& list) { return list[random() % list.size()]; };
    const Strings names = {"a", "b", "ab", ".a", "a.x", "b[a]*", "\xC3\xA9", "\xFF"};
    for (unsigned tree = 0; tree < count; ++tree) {
      std::vector<fs::path> directories = {home(tree)};
      fs::create_directories(directories[0]);
      for (int i = 0; i < 25; ++i) {
        const fs::path entry = oneOf(directories) / oneOf(names);
        const auto kind = random() % 3;
        if (fs::exists(fs::symlink_status(entry))) continue;
        if (kind == 0) touchFile(entry, after(Timestamp(), i + 0.5));
        if (kind == 1) fs::create_directory_symlink(oneOf(directories), entry);
        if (kind == 2) fs::create_directory(entry), directories.push_back(entry);
      }
    }
  }
  /// The root of a tree, so deep that no pattern leads out of the temporary directory.
  fs::path home(unsigned tree) const { return path() / "a/a/a/a/a/a" / std::to_string(tree); }
};

/// The matches of a pattern, one directory and one component at a time. Gives up if that takes too
/// long.
class PlainWalk {
 public:
  ModificationsByPath matches;

  bool run(const std::string& home, std::string_view pattern, int maxDepth) {
    if (pattern.starts_with("~/")) pattern.remove_prefix(2);
    Strings components;
    while (!pattern.empty()) {
      const auto [component, rest] = fuzz::cut(pattern, '/');
      if (!component.empty()) components.emplace_back(component);
      pattern = rest;
    }
    visit(home, components, 0, maxDepth);
    return left_ > 0;
  }

 private:
  void visit(const std::string& at, const Strings& components, std::size_t next, int depth) {
    if (depth < 0 || --left_ <= 0) return;
    if (next == components.size()) {
      const auto status = platform::entryStatus(at, false);
      if (status) matches[at] = status->modifiedAt;
      return;
    }
    const std::string& head = components[next];
    if (head.find('*') == head.npos) return visit(at + "/" + head, components, next + 1, depth - 1);
    if (head == "**") visit(at, components, next + 1, depth);
    std::error_code none;
    for (const auto& entry : fs::directory_iterator(at, none)) {
      const std::string name = entry.path().filename().string();
      if (head == "**" ? fs::is_directory(entry.symlink_status())
                       : ::fnmatch(head.c_str(), name.c_str(), 0) == 0)
        visit(at + "/" + name, components, next + (head != "**"), depth - 1);
    }
  }

  int left_ = 200;
};

}  // namespace

FUZZ(text) {
  static const Trees trees;
  const auto [numbers, lines] = fuzz::cut(text, '\n');
  if (numbers.size() < 2) return;
  const std::string home =
      trees.home(static_cast<unsigned char>(numbers[0]) % Trees::count).string();
  const int maxDepth = static_cast<unsigned char>(numbers[1]) % 8 - 1;

  PlainWalk plain;
  Strings patterns;
  for (std::string_view rest = lines; !rest.empty() && patterns.size() < 4;) {
    const auto [pattern, others] = fuzz::cut(rest, '\n');
    rest = others;
    if (std::count(pattern.begin(), pattern.end(), '*') > 12) return;  // fnmatch() would be slow
    patterns.emplace_back(pattern);
    if (pattern.find('\0') != pattern.npos) continue;  // no entry has such a name
    if (!plain.run(home, pattern, maxDepth)) return;
  }
  const FileActivityProbe probe(home, maxDepth);
  require(probe.sessionModifications(patterns) == plain.matches, "patterns match as defined");

  std::vector<Timestamp> times = probe.modificationDates(patterns), expected;
  for (const auto& [path, time] : plain.matches) expected.push_back(time);
  std::sort(times.begin(), times.end());
  std::sort(expected.begin(), expected.end());
  require(times == expected, "every match gives its time");
  require(probe.newestModification(patterns) ==
              (expected.empty() ? std::nullopt : std::optional(expected.back())),
          "the newest is the latest of them");

  // Names that no tree has.
  const std::string wildcard(fuzz::cut(lines, '\n').first.substr(0, 40));
  const std::string name(numbers.substr(2, 40));
  if (wildcard.find('\0') != wildcard.npos) return;
  require(platform::Wildcard(wildcard).matches(name.c_str()) ==
              (::fnmatch(wildcard.c_str(), name.c_str(), 0) == 0),
          "one name matches as defined");
}
