#include "Platform/Directory.h"

#include <dirent.h>
#include <fnmatch.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <utility>

#include "Platform/FileTime.h"

namespace wakelatch::platform {
namespace {

std::optional<EntryStatus> statusOf(int directory, const char* path, int flags) {
  struct stat status {};
  if (::fstatat(directory, path, &status, flags) != 0) return std::nullopt;
  const EntryKind kind = S_ISDIR(status.st_mode)   ? EntryKind::directory
                         : S_ISLNK(status.st_mode) ? EntryKind::link
                                                   : EntryKind::other;
  return EntryStatus{.kind = kind,
                     .modifiedAt = contentTime(status),
                     .hasOtherNames = kind == EntryKind::other && status.st_nlink > 1,
                     .device = static_cast<std::uint64_t>(status.st_dev),
                     .number = static_cast<std::uint64_t>(status.st_ino)};
}

EntryKind kindOf(int directory, const dirent& entry) {
  if (entry.d_type == DT_DIR) return EntryKind::directory;
  if (entry.d_type == DT_LNK) return EntryKind::link;
  if (entry.d_type != DT_UNKNOWN) return EntryKind::other;
  // Not every file system tells types in its listings.
  const auto status = statusOf(directory, entry.d_name, AT_SYMLINK_NOFOLLOW);
  return status ? status->kind : EntryKind::other;
}

}  // namespace

std::optional<EntryStatus> entryStatus(const std::string& path, bool followsLink) {
  return statusOf(AT_FDCWD, path.c_str(), followsLink ? 0 : AT_SYMLINK_NOFOLLOW);
}

std::optional<EntryStatus> DirectoryEntry::status() const {
  return statusOf(directory, path, AT_SYMLINK_NOFOLLOW);
}

bool forEachEntry(const std::string& path,
                  const std::function<void(const DirectoryEntry& entry)>& visit) {
  const auto close = [](DIR* opened) { ::closedir(opened); };
  const std::unique_ptr<DIR, decltype(close)> listing(::opendir(path.c_str()), close);
  if (!listing) return false;
  const int directory = ::dirfd(listing.get());
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(listing.get());
    if (entry == nullptr) return errno == 0;
    const std::string_view name = entry->d_name;
    if (name == "." || name == "..") continue;
    visit({entry->d_name, kindOf(directory, *entry), directory});
  }
}

Wildcard::Wildcard(std::string pattern) : pattern_(std::move(pattern)) {
  const std::size_t star = pattern_.find('*');
  const bool alone = star != std::string::npos &&
                     pattern_.find('*', star + 1) == std::string::npos &&
                     pattern_.find_first_of("?[\\") == std::string::npos;
  onlyStar_ = alone ? star : std::string::npos;
}

bool Wildcard::matches(const char* name) const {
  if (onlyStar_ == std::string::npos) return ::fnmatch(pattern_.c_str(), name, 0) == 0;
  // The usual kind, and a listing is long: fnmatch would decode each name in the process's locale.
  const std::string_view text = name, pattern = pattern_;
  const std::string_view head = pattern.substr(0, onlyStar_), tail = pattern.substr(onlyStar_ + 1);
  return text.size() >= head.size() + tail.size() && text.substr(0, head.size()) == head &&
         text.substr(text.size() - tail.size()) == tail;
}

}  // namespace wakelatch::platform
