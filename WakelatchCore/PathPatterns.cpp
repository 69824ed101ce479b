#include "WakelatchCore/PathPatterns.h"

#include <algorithm>
#include <map>
#include <utility>

namespace wakelatch {

using platform::DirectoryEntry, platform::EntryKind;
using Kind = PatternList::Component::Kind;

namespace {

Kind kindOf(std::string_view text) {
  if (text == "**") return Kind::anyLevels;
  return text.find('*') == std::string_view::npos ? Kind::name : Kind::wildcard;
}

}  // namespace

PatternList::PatternList(const std::vector<std::string>& patterns) {
  for (const std::string& pattern : patterns) {
    if (pattern.find('\0') != std::string::npos) continue;  // no entry has such a name
    add(starts_, parse(pattern));
  }
}

/// Appends the components of a pattern; returns the index of the first one.
std::size_t PatternList::parse(std::string_view pattern) {
  const std::size_t start = components_.size();
  if (pattern.substr(0, 2) == "~/") pattern.remove_prefix(2);
  while (!pattern.empty()) {
    const std::string_view text = pattern.substr(0, pattern.find('/'));
    if (!text.empty()) components_.push_back({kindOf(text), std::string(text)});
    pattern.remove_prefix(std::min(text.size() + 1, pattern.size()));
  }
  components_.push_back({Kind::end});
  return start;
}

/// Adds `position` and, as "**" may stand for no level at all, also the position after each "**".
/// Calls must come in ascending order of positions, repeated ones included.
void PatternList::add(Positions& positions, std::size_t position) const {
  while (positions.empty() || positions.back() < position) {
    positions.push_back(position);
    if (components_[position].kind != Kind::anyLevels) return;
    ++position;
  }
}

Positions PatternList::advanced(const Positions& positions, const char* name,
                                EntryKind kind) const {
  Positions next;
  for (const std::size_t position : positions) {
    const Component& component = components_[position];
    switch (component.kind) {
      case Kind::name:
        if (component.text == name) add(next, position + 1);
        break;
      case Kind::wildcard:
        if (kind != EntryKind::unlisted && component.wildcard.matches(name)) {
          add(next, position + 1);
        }
        break;
      case Kind::anyLevels:
        if (kind == EntryKind::directory) add(next, position);
        break;
      case Kind::end:
        break;
    }
  }
  return next;
}

bool PatternList::mayEndBelow(const Positions& positions) const {
  return std::any_of(positions.begin(), positions.end(), [this](std::size_t position) {
    if (components_[position].kind == Kind::end) return false;
    while (components_[++position].kind == Kind::anyLevels) continue;
    return components_[position].kind == Kind::end;
  });
}

std::string joined(const std::string& directory, const char* name) {
  const bool needsSlash = !directory.empty() && directory.back() != '/';
  return directory + (needsSlash ? "/" : "") + name;
}

void PatternWalk::run(std::string home) {
  if (maxDepth_ < 0 || home.empty()) return;
  while (home.size() > 1 && home.back() == '/') home.pop_back();
  reach({"", -1, {}}, home.c_str(), {home.c_str()}, patterns_.starts());
  enterPlanned();
}

void PatternWalk::enterPlanned() {
  while (!planned_.empty()) {
    Place next = std::move(planned_.back());
    planned_.pop_back();
    if (!enters(next)) continue;
    left(next, look(next));
  }
}

bool PatternWalk::look(const Place& directory) {
  std::map<std::string_view, EntryKind> named;
  bool lists = false, isRead = true;
  for (const std::size_t position : directory.positions) {
    const PatternList::Component& component = patterns_[position];
    if (component.kind == Kind::name) {
      named.try_emplace(component.text, EntryKind::unlisted);
    } else if (component.kind != Kind::end) {
      lists = true;
    }
  }
  if (lists) {
    isRead = platform::forEachEntry(directory.path, [&](const DirectoryEntry& entry) {
      if (const auto same = named.find(entry.path); same != named.end()) {
        same->second = entry.kind;  // reached below, for all patterns at once
      } else {
        reach(directory, entry.path, entry,
              patterns_.advanced(directory.positions, entry.path, entry.kind));
      }
    });
  }
  for (const auto& [text, kind] : named) {
    const char* name = text.data();  // a whole component's text, so it is NUL-terminated
    const std::string path = joined(directory.path, name);
    reach(directory, name, {path.c_str(), kind},
          patterns_.advanced(directory.positions, name, kind));
  }
  return isRead;
}

void PatternWalk::reach(const Place& directory, const char* name, const DirectoryEntry& entry,
                        const Positions& positions) {
  const auto ends = std::count_if(positions.begin(), positions.end(), [this](std::size_t at) {
    return patterns_[at].kind == Kind::end;
  });
  if (ends > 0) {
    if (const auto status = entry.status()) found(directory, name, *status);
  }
  const bool leadsOn = static_cast<std::size_t>(ends) < positions.size();
  const std::int64_t depth = directory.depth + 1;
  if (leadsOn && entry.kind != EntryKind::other && depth < maxDepth_) {
    planned_.push_back({joined(directory.path, name), depth, positions, directory.isUnwatched});
  }
}

}  // namespace wakelatch
