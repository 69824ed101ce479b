#include "WakelatchCore/FileLogger.h"

#include <array>
#include <cmath>
#include <exception>
#include <string>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/Files.h"

namespace wakelatch {
namespace {

/// The current time in ISO 8601, formatted anew only when the second changes. A plain array holds
/// it because a thread's objects with destructors are gone when static ones still log.
std::string_view timestampNow() {
  thread_local double second = std::nan("");
  thread_local std::array<char, 32> text;
  thread_local std::size_t length = 0;
  const Timestamp now = platform::now();
  if (const double current = std::floor(now.time_since_epoch().count()); current != second) {
    length = platform::iso8601(now).copy(text.data(), text.size());
    second = current;
  }
  return {text.data(), length};
}

std::filesystem::path defaultLogURL() {
  return platform::homeDirectory() / "Library/Logs/Wakelatch.log";
}

}  // namespace

FileLogger::FileLogger(std::optional<std::filesystem::path> logURL)
    : logURL_(logURL ? std::move(*logURL) : defaultLogURL()) {}

FileLogger& FileLogger::shared() {
  static FileLogger& logger = *new FileLogger;
  struct DrainAtExit {
    ~DrainAtExit() { logger.queue_.drain(); }
  };
  static const DrainAtExit drainAtExit;
  return logger;
}

void FileLogger::log(std::string_view message) noexcept try {
  const std::string_view timestamp = timestampNow();
  const platform::MutexLock lock(mutex_);
  if (waiting_.ends.empty()) queue_.async([this] { writeWaitingLines(); });
  const std::size_t start = waiting_.text.size();
  try {
    waiting_.text.append("[").append(timestamp).append("] ").append(message).append("\n");
    waiting_.ends.push_back(waiting_.text.size());
  } catch (...) {
    waiting_.text.resize(start);  // half a line would be glued to the next
    throw;
  }
} catch (...) {
  // No memory or no thread: the line is lost, the caller goes on.
}

void FileLogger::writeWaitingLines() {
  Lines lines;
  {
    const platform::MutexLock lock(mutex_);
    std::swap(lines, waiting_);
  }
  std::size_t start = 0;
  for (const std::size_t end : lines.ends) {
    try {
      platform::append(logURL_, std::string_view(lines.text).substr(start, end - start));
    } catch (const std::exception&) {
      // A log that cannot be written has no place to say so.
    }
    start = end;
  }
}

}  // namespace wakelatch
