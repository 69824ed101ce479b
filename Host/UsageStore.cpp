#include "Host/UsageStore.h"

#include <algorithm>
#include <system_error>

#include "Platform/Files.h"

namespace wakelatch::host {
namespace {

/// Moves `file` to a free name beside it and returns that name. Throws std::system_error.
std::filesystem::path setAside(const std::filesystem::path& file, Timestamp now) {
  std::string time = platform::iso8601(now);
  time.erase(std::remove(time.begin(), time.end(), ':'), time.end());  // Finder shows it as "/"
  const std::string name = file.string() + ".damaged-" + time;
  std::filesystem::path target = name;
  // The status of a link itself: a rename would replace even a dangling one.
  for (int n = 2; std::filesystem::exists(std::filesystem::symlink_status(target)); ++n) {
    target = name + "-" + std::to_string(n);
  }
  std::filesystem::rename(file, target);
  return target;
}

}  // namespace

std::optional<UsageMetrics> loadUsage(const std::filesystem::path& file) try {
  return decode<UsageMetrics>(platform::readFile(file));
} catch (const std::system_error& error) {
  if (error.code() == std::errc::no_such_file_or_directory) return std::nullopt;
  throw;
} catch (const DecodingError& error) {
  throw DamagedUsage("usage: " + file.string() + ": " + error.what());
}

UsageStore::Opened UsageStore::open(Timestamp now) {
  Opened opened{UsageMetrics(now), {}};
  const auto leaveAlone = [&](const std::string& why) {
    mayWrite_ = false;
    opened.notice = why + "; the file is left as it is and nothing is saved in this run";
  };
  try {
    if (std::optional<UsageMetrics> stored = loadUsage(file_)) opened.metrics = std::move(*stored);
  } catch (const DamagedUsage& damage) {
    try {
      const std::filesystem::path aside = setAside(file_, now);
      opened.notice = std::string(damage.what()) + "; set aside as " + aside.filename().string() +
                      ", statistics begin anew";
    } catch (const std::system_error& error) {
      leaveAlone(std::string(damage.what()) + "; " + error.what());
    }
  } catch (const std::system_error& error) {
    leaveAlone(std::string("usage: ") + error.what());
  }
  return opened;
}

std::string UsageStore::save(const UsageMetrics& metrics) {
  if (!mayWrite_) return {};
  try {
    const std::string text = encode(metrics);
    platform::createDirectories(file_.parent_path());
    platform::writeAtomically(file_, text, platform::Durability::power);
    return {};
  } catch (const std::exception& error) {
    return std::string("usage: ") + error.what() +
           "; what is on disk stays as it was, saving is tried again every minute";
  }
}

}  // namespace wakelatch::host
