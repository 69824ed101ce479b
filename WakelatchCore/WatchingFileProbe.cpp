#include "WakelatchCore/WatchingFileProbe.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <map>
#include <set>
#include <utility>

#include "Platform/DirectoryWatch.h"
#include "Platform/Mutex.h"
#include "WakelatchCore/PathPatterns.h"

namespace wakelatch {
namespace {

using platform::DirectoryWatch, platform::EntryKind, platform::EntryStatus, platform::entryStatus;
using Patterns = std::vector<std::string>;
using SteadyClock = std::chrono::steady_clock;

/// Counts the users of each watch, as several trees may contain the same directory.
class SharedWatches {
 public:
  std::optional<DirectoryWatch::Number> add(const std::string& path, std::uint64_t device,
                                            bool tellsWrites) {
    const auto number = watch_.add(path, device, tellsWrites);
    if (number) ++users_[*number];
    return number;
  }
  void remove(DirectoryWatch::Number number) {
    if (--users_[number] > 0) return;
    users_.erase(number);
    watch_.remove(number);
  }
  DirectoryWatch::Changes read() { return watch_.read(); }

 private:
  DirectoryWatch watch_;
  std::map<DirectoryWatch::Number, int> users_;
};

/// A directory where patterns may match or continue.
struct Directory {
  PatternWalk::Place place;
  std::optional<DirectoryWatch::Number> watch = {};
  /// Whether its path leads through a symbolic link or "..", or is home: then another directory may
  /// come to be at this path without a reported change, so each call compares it with `seen`.
  bool isCompared = false;
  std::optional<EntryStatus> seen = {};     ///< its status when it was entered
  ModificationsByPath matches = {};         ///< by name
  std::optional<Timestamp> newest = {};     ///< latest time of the matches
  bool isNewestGone = false;                ///< `newest` has to be found again
  std::optional<Timestamp> indexedBy = {};  ///< its key in the tree's index; absent: not in there
  std::set<std::string> polled = {};        ///< matches whose times change without a report
};

std::string nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

/// The entries that a list of patterns matches, and the directories where it may match.
class Tree : PatternWalk {
 public:
  Tree(const Patterns& patterns, const std::string& home, std::int64_t maxDepth,
       SharedWatches& watches)
      : Tree(std::make_unique<PatternList>(patterns), home, maxDepth, watches) {}
  ~Tree() override { forget(""); }

  /// Walks everything anew.
  void build() {
    forget("");
    Directory& above = directories_[""];  // holds home itself if a pattern matches that
    above.place = {"", -1, {}};
    current_ = &above;
    run(home_);
    index(above);
    isStale_ = false;  // only now: without memory for all of it, the next call walks again
  }

  /// Reads again what has changed. If that may be anything, only refresh() reads it: a tree that
  /// nobody asks for costs nothing then.
  void apply(const DirectoryWatch::Changes& changes) {
    isStale_ = isStale_ || changes.mayBeAnything;
    if (isStale_) return;
    for (const auto& [number, name] : changes.entries) {
      const auto [begin, end] = watched_.equal_range(number);
      std::vector<std::string> paths;  // copied, as lookAgain() may change the table
      for (auto at = begin; at != end; ++at) paths.push_back(at->second);
      for (const std::string& path : paths) lookAgain(path, name);
    }
    indexChanged();
  }

  /// Reads again what the system does not report, or everything if anything may have changed.
  void refresh() {
    if (isStale_) return build();
    const std::set<std::string> paths = silent_;
    for (const std::string& path : paths) {
      const auto known = directories_.find(path);
      if (known == directories_.end()) continue;
      Directory& directory = known->second;
      const bool isAbove = directory.place.depth < 0;
      if (!isAbove && (!directory.watch || (directory.isCompared && !isSame(directory)))) {
        walkAgain(directory.place);
        continue;
      }
      for (const std::string& name : directory.polled) {
        const auto status = entryStatus(joined(path, name.c_str()), false);
        match(directory, name, status ? std::optional(status->modifiedAt) : std::nullopt);
      }
      index(directory);
    }
  }

  std::optional<Timestamp> newest() const {
    return byTime_.empty() ? std::nullopt : std::optional(byTime_.rbegin()->first);
  }

  ModificationsByPath since(Timestamp time) const {
    ModificationsByPath found;
    for (auto at = byTime_.rbegin(); at != byTime_.rend() && !(at->first < time); ++at) {
      const Directory& directory = *at->second;
      for (const auto& [name, modifiedAt] : directory.matches) {
        if (modifiedAt < time) continue;
        found.emplace(joined(directory.place.path, name.c_str()), modifiedAt);
      }
    }
    return found;
  }

  /// The path of the next directory after `path`; empty if there is none.
  std::string pathAfter(const std::string& path) const {
    const auto next = directories_.upper_bound(path);
    return next == directories_.end() ? "" : next->first;
  }

  /// Compares a directory with the disk and corrects it; returns how many entries were wrong
  /// without a reported change. Sets `changes` to those that were reported meanwhile; the caller
  /// has to apply them.
  std::size_t verify(const std::string& path, DirectoryWatch::Changes& changes) {
    const Directory& directory = directories_.at(path);
    if (isStale_ || !directory.watch) return 0;
    Relisting disk(*patterns_, maxDepth_);
    if (!disk.look(directory.place)) return 0;  // it is gone; a report of that will come
    changes = watches_.read();
    if (changes.mayBeAnything) return 0;

    std::set<std::string> wrong;
    for (const auto& [name, time] : directory.matches) {
      const auto onDisk = disk.times.find(name);
      if (onDisk == disk.times.end() || onDisk->second != time) wrong.insert(name);
    }
    for (const auto& [name, time] : disk.times) {
      if (!directory.matches.contains(name)) wrong.insert(name);
    }
    const std::set<std::string> below = disk.directories();
    for (const std::string& child : below) {
      if (!directories_.contains(child)) wrong.insert(nameOf(child));
    }
    const std::string prefix = joined(path, "");
    for (auto at = directories_.upper_bound(prefix);
         at != directories_.end() && at->first.starts_with(prefix); ++at) {
      const bool isChild = at->second.place.depth == directory.place.depth + 1;
      if (isChild && !at->second.isCompared && !below.contains(at->first)) {
        wrong.insert(nameOf(at->first));
      }
    }
    std::erase_if(wrong, [&](const std::string& name) {
      return directory.polled.contains(name) || changes.entries.contains({*directory.watch, name});
    });
    for (const std::string& name : wrong) lookAgain(path, name);
    indexChanged();
    return wrong.size();
  }

 private:
  /// A listing of one directory as it is on the disk.
  class Relisting : public PatternWalk {
   public:
    using PatternWalk::look, PatternWalk::PatternWalk;

    /// The directories in it where patterns continue, without symbolic links.
    std::set<std::string> directories() const {
      std::set<std::string> paths;
      for (const Place& place : planned_) {
        const auto status = entryStatus(place.path, false);
        if (status && status->kind == EntryKind::directory) paths.insert(place.path);
      }
      return paths;
    }

    ModificationsByPath times;

   private:
    void found(const Place& /*directory*/, const char* name, const EntryStatus& status) override {
      times.emplace(name, status.modifiedAt);
    }
  };

  Tree(std::unique_ptr<const PatternList> patterns, const std::string& home, std::int64_t maxDepth,
       SharedWatches& watches)
      : PatternWalk(*patterns, maxDepth),
        patterns_(std::move(patterns)),
        home_(home),
        maxDepth_(maxDepth),
        watches_(watches) {
    build();
  }

  // ---------------------------------------------------------------------- what a walk comes to

  bool enters(Place& place) override {
    const bool isParent = nameOf(place.path) == "..";
    auto status = entryStatus(place.path, false);
    const bool isLink = status && status->kind == EntryKind::link;
    const bool isCompared = place.depth == 0 || isParent || isLink;
    if (isCompared) status = entryStatus(place.path, true);
    const bool isDirectory = status && status->kind == EntryKind::directory;
    if (!isDirectory && !isCompared) return false;  // if it becomes one, its parent's watch reports

    // Watched before it is listed, so that no change between the two is missed.
    std::optional<DirectoryWatch::Number> number;
    if (isDirectory && !place.isUnwatched) {
      number = watches_.add(place.path, status->device, patterns_->mayEndBelow(place.positions));
    }
    if (!place.isUnwatched && (isCompared || !number)) silent_.insert(place.path);
    if (number) watched_.emplace(*number, place.path);
    place.isUnwatched = !number;
    current_ = &directories_[place.path];
    current_->place = place;
    current_->watch = number;
    current_->isCompared = isCompared;
    current_->seen = status;
    return isDirectory;
  }

  void found(const Place& place, const char* name, const EntryStatus& status) override {
    wasFound_ = true;
    match(*current_, name, status.modifiedAt);
    if (place.isUnwatched) return;
    if (status.kind == EntryKind::directory || status.hasOtherNames) {
      current_->polled.insert(name);
      silent_.insert(place.path);
    }
  }

  void left(const Place& place, bool isRead) override {
    index(*current_);
    if (isRead || place.isUnwatched) return;
    unwatch(*current_);
    silent_.insert(place.path);
  }

  // ------------------------------------------------------------------------------- looking again

  static bool isSame(const Directory& directory) {
    const auto now = entryStatus(directory.place.path, true);
    return now && directory.seen && now->isSame(*directory.seen);
  }

  void walkAgain(Place place) {
    forget(place.path);
    place.isUnwatched = false;
    planned_.push_back(std::move(place));
    enterPlanned();
  }

  void lookAgain(const std::string& path, const std::string& name) {
    const auto known = directories_.find(path);
    if (known == directories_.end()) return;
    const Place place = known->second.place;
    if (name.empty()) return walkAgain(place);
    const auto leadsTo = [&](EntryKind kind) {
      return patterns_->advanced(place.positions, name.c_str(), kind);
    };
    if (leadsTo(EntryKind::directory).empty()) return;

    const std::string child = joined(path, name.c_str());
    forget(child);
    current_ = &known->second;
    current_->polled.erase(name);
    wasFound_ = false;
    if (const auto status = entryStatus(child, false)) {
      reach(place, name.c_str(), {child.c_str(), status->kind}, leadsTo(status->kind));
    }
    if (!wasFound_) match(*current_, name, std::nullopt);
    changed_.insert(path);
    enterPlanned();
  }

  // ---------------------------------------------------------------------------- what is remembered

  /// Sets the time of a match, or removes the match if `time` is absent. To be followed by index().
  static void match(Directory& directory, std::string name, std::optional<Timestamp> time) {
    ModificationsByPath& matches = directory.matches;
    std::optional<Timestamp> before;
    if (time) {
      const auto [entry, isNew] = matches.try_emplace(std::move(name), *time);
      if (!isNew) before = std::exchange(entry->second, *time);
    } else if (const auto entry = matches.find(name); entry != matches.end()) {
      before = entry->second;
      matches.erase(entry);
    }
    if (time && (!directory.newest || *time >= *directory.newest)) {
      directory.newest = time;
      directory.isNewestGone = false;
    } else if (before && before == directory.newest) {
      directory.isNewestGone = true;
    }
  }

  /// Indexes the directories that lookAgain() has changed. Done once for all changes: finding the
  /// newest of a directory takes a look at all its matches.
  void indexChanged() {
    for (const std::string& path : std::exchange(changed_, {})) {
      const auto known = directories_.find(path);
      if (known != directories_.end()) index(known->second);
    }
  }

  void index(Directory& directory) {
    if (std::exchange(directory.isNewestGone, false)) {
      directory.newest.reset();
      for (const auto& [name, time] : directory.matches) {
        directory.newest = std::max(directory.newest.value_or(time), time);
      }
    }
    if (directory.indexedBy == directory.newest) return;
    if (directory.indexedBy) byTime_.erase({*directory.indexedBy, &directory});
    if (directory.newest) byTime_.emplace(*directory.newest, &directory);
    directory.indexedBy = directory.newest;
  }

  void unwatch(Directory& directory) {
    if (!directory.watch) return;
    const auto [begin, end] = watched_.equal_range(*directory.watch);
    watched_.erase(std::find_if(
        begin, end, [&](const auto& entry) { return entry.second == directory.place.path; }));
    watches_.remove(*std::exchange(directory.watch, std::nullopt));
  }

  /// Removes a directory and all that is below it.
  void forget(const std::string& path) {
    const auto forgetOne = [this](auto at) {
      unwatch(at->second);
      at->second.newest.reset();
      at->second.isNewestGone = false;
      index(at->second);
      silent_.erase(at->first);
      return directories_.erase(at);
    };
    if (const auto known = directories_.find(path); known != directories_.end()) forgetOne(known);
    const std::string prefix = joined(path, "");
    for (auto at = directories_.lower_bound(prefix);
         at != directories_.end() && at->first.starts_with(prefix);) {
      at = forgetOne(at);
    }
  }

  const std::unique_ptr<const PatternList> patterns_;
  const std::string home_;
  const std::int64_t maxDepth_;
  SharedWatches& watches_;
  std::map<std::string, Directory> directories_;                ///< by path
  std::multimap<DirectoryWatch::Number, std::string> watched_;  ///< paths of watched directories
  std::set<std::string> changed_;  ///< paths of the directories to be indexed again
  std::set<std::string> silent_;   ///< paths of the directories that refresh() has to read
  std::set<std::pair<Timestamp, const Directory*>> byTime_;  ///< by the time of the newest match
  Directory* current_ = nullptr;                             ///< the one that is being read
  bool isStale_ = false;                                     ///< everything has to be read again
  bool wasFound_ = false;  ///< found() was called since lookAgain()
};

}  // namespace

struct WatchingFileProbe::State {
  State(std::string root, std::int64_t levels, double every)
      : home(std::move(root)), maxDepth(levels), verifyEvery(every) {}

  Tree& upToDate(const Patterns& patterns) WAKELATCH_REQUIRES(mutex) {
    apply(watches.read());
    const auto [entry, isNew] = trees.try_emplace(patterns, patterns, home, maxDepth, watches);
    if (!isNew) entry->second.refresh();
    return entry->second;
  }

  void apply(const DirectoryWatch::Changes& changes) WAKELATCH_REQUIRES(mutex) {
    for (auto& [patterns, tree] : trees) tree.apply(changes);
  }

  std::size_t verify(double seconds) WAKELATCH_REQUIRES(mutex) {
    const auto start = SteadyClock::now();
    const auto passed = [](SteadyClock::time_point since) {
      return std::chrono::duration<double>(SteadyClock::now() - since).count();
    };
    if (verifiedTree == trees.end()) {
      if (passed(verifiedAt) < verifyEvery) return 0;
      verifiedAt = start;
      verifiedTree = trees.begin();
    }
    apply(watches.read());
    std::size_t wrong = 0;
    for (; verifiedTree != trees.end(); ++verifiedTree) {
      Tree& tree = verifiedTree->second;
      tree.refresh();
      while (!(verifiedPath = tree.pathAfter(verifiedPath)).empty()) {
        DirectoryWatch::Changes changes;
        wrong += tree.verify(verifiedPath, changes);
        apply(changes);
        if (passed(start) > seconds) return wrong;
      }
    }
    return wrong;
  }

  const std::string home;
  const std::int64_t maxDepth;
  const double verifyEvery;
  platform::Mutex mutex;
  SharedWatches watches WAKELATCH_GUARDED_BY(mutex);
  std::map<Patterns, Tree> trees WAKELATCH_GUARDED_BY(mutex);
  /// Where verify() continues: the tree, and the last directory that it has compared.
  std::map<Patterns, Tree>::iterator verifiedTree WAKELATCH_GUARDED_BY(mutex) = trees.end();
  std::string verifiedPath WAKELATCH_GUARDED_BY(mutex);
  SteadyClock::time_point verifiedAt WAKELATCH_GUARDED_BY(mutex) = SteadyClock::now();
};

bool WatchingFileProbe::isSupported() {
  return platform::DirectoryWatch::isSupported();
}

WatchingFileProbe::WatchingFileProbe(const std::filesystem::path& home, std::int64_t maxDepth,
                                     double verifyEvery)
    : state_(std::make_unique<State>(home.string(), maxDepth, verifyEvery)) {}

WatchingFileProbe::~WatchingFileProbe() = default;

std::optional<Timestamp> WatchingFileProbe::newestModification(
    const std::vector<std::string>& patterns) const {
  const platform::MutexLock lock(state_->mutex);
  return state_->upToDate(patterns).newest();
}

std::vector<Timestamp> WatchingFileProbe::modificationDates(
    const std::vector<std::string>& patterns) const {
  std::vector<Timestamp> times;
  for (const auto& [path, time] : sessionModifications(patterns)) times.push_back(time);
  return times;
}

ModificationsByPath WatchingFileProbe::sessionModifications(
    const std::vector<std::string>& patterns) const {
  constexpr double ever = std::numeric_limits<double>::infinity();
  return recentModifications(patterns, after(Timestamp(), -ever));
}

ModificationsByPath WatchingFileProbe::recentModifications(const std::vector<std::string>& patterns,
                                                           Timestamp since) const {
  const platform::MutexLock lock(state_->mutex);
  return state_->upToDate(patterns).since(since);
}

std::size_t WatchingFileProbe::verify(double seconds) {
  const platform::MutexLock lock(state_->mutex);
  return state_->verify(seconds);
}

}  // namespace wakelatch
