#include "WakelatchCore/FileActivityProbe.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

#include "WakelatchCore/PathPatterns.h"

namespace wakelatch {
namespace {

/// Calls a function with each match's directory path, name and modification time.
class Listing : public PatternWalk {
 public:
  using Found = std::function<void(const std::string&, const char*, Timestamp)>;

  Listing(const PatternList& patterns, std::int64_t maxDepth, Found found)
      : PatternWalk(patterns, maxDepth), found_(std::move(found)) {}

 private:
  void found(const Place& directory, const char* name,
             const platform::EntryStatus& status) override {
    found_(directory.path, name, status.modifiedAt);
  }

  const Found found_;
};

}  // namespace

ModificationsByPath FileActivityProbing::recentModifications(
    const std::vector<std::string>& patterns, Timestamp since) const {
  ModificationsByPath files = sessionModifications(patterns);
  std::erase_if(files, [since](const auto& file) { return file.second < since; });
  return files;
}

FileActivityProbe::FileActivityProbe(std::filesystem::path home, std::int64_t maxDepth)
    : home_(std::move(home)), maxDepth_(maxDepth) {}

std::optional<Timestamp> FileActivityProbe::newestModification(
    const std::vector<std::string>& patterns) const {
  std::optional<Timestamp> newest;
  const PatternList list(patterns);
  Listing(list, maxDepth_, [&newest](const std::string&, const char*, Timestamp time) {
    newest = newest ? std::max(*newest, time) : time;
  }).run(home_.string());
  return newest;
}

std::vector<Timestamp> FileActivityProbe::modificationDates(
    const std::vector<std::string>& patterns) const {
  std::vector<Timestamp> times;
  for (const auto& [path, time] : sessionModifications(patterns)) times.push_back(time);
  return times;
}

ModificationsByPath FileActivityProbe::sessionModifications(
    const std::vector<std::string>& patterns) const {
  std::vector<std::pair<std::string, Timestamp>> matches;
  const PatternList list(patterns);
  Listing(list, maxDepth_,
          [&matches](const std::string& directory, const char* name, Timestamp time) {
            matches.emplace_back(joined(directory, name), time);
          })
      .run(home_.string());
  // Built at once with the final size: inserting one by one would rehash the table repeatedly.
  return {std::make_move_iterator(matches.begin()), std::make_move_iterator(matches.end()),
          matches.size()};
}

}  // namespace wakelatch
