#include "Platform/Directory.h"

#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "Platform/FileTime.h"

namespace wakelatch::platform {
namespace {

#if defined(O_PATH)
constexpr int searchOnly = O_PATH;
#elif defined(O_SEARCH)
constexpr int searchOnly = O_SEARCH;
#else
constexpr int searchOnly = O_RDONLY;
#endif

std::optional<struct stat> statusOf(int directory, const char* path) {
  struct stat status;
  if (::fstatat(directory, path, &status, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return status;
}

Directory::EntryKind kindOf(int fd, const dirent& entry) {
  using Kind = Directory::EntryKind;
  if (entry.d_type == DT_DIR) return Kind::directory;
  if (entry.d_type == DT_LNK) return Kind::link;
  if (entry.d_type != DT_UNKNOWN) return Kind::other;
  // Not every file system tells types in its listings.
  const auto status = statusOf(fd, entry.d_name);
  if (!status) return Kind::other;
  if (S_ISDIR(status->st_mode)) return Kind::directory;
  return S_ISLNK(status->st_mode) ? Kind::link : Kind::other;
}

}  // namespace

struct Directory::Handle {
  explicit Handle(int descriptor) : fd(descriptor) {}
  ~Handle() {
    if (listing != nullptr) {
      ::closedir(listing);  // closes the descriptor too
    } else if (fd >= 0) {   // the working directory has none
      ::close(fd);
    }
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  const int fd;
  DIR* listing = nullptr;
};

Directory::Directory() = default;
Directory::Directory(Directory&&) noexcept = default;
Directory& Directory::operator=(Directory&&) noexcept = default;
Directory::~Directory() = default;

Directory::Directory(int fd) : handle_(std::make_unique<Handle>(fd)) {}

Directory Directory::working() {
  return Directory(AT_FDCWD);
}

void Directory::close() {
  handle_.reset();
}

int Directory::fd() const {
  return handle_ ? handle_->fd : -1;
}

Directory Directory::open(const char* path) const {
  constexpr int flags = O_DIRECTORY | O_CLOEXEC;
  int found = ::openat(fd(), path, O_RDONLY | flags);
  if (found < 0 && (errno == EACCES || errno == EPERM)) {
    found = ::openat(fd(), path, searchOnly | flags);
  }
  return found < 0 ? Directory() : Directory(found);
}

std::optional<Timestamp> Directory::modificationTime(const char* path) const {
  const auto status = statusOf(fd(), path);
  if (!status) return std::nullopt;
  return contentTime(*status);
}

void Directory::forEachEntry(const Visit& visit) {
  if (!handle_) return;
  handle_->listing = ::fdopendir(handle_->fd);
  if (handle_->listing == nullptr) return;
  while (const dirent* entry = ::readdir(handle_->listing)) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") visit(entry->d_name, kindOf(handle_->fd, *entry));
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
