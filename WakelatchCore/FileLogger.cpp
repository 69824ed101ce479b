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
  std::string line;
  line.reserve(timestamp.size() + message.size() + 4);
  line.append("[").append(timestamp).append("] ").append(message).append("\n");
  queue_.async([this, line = std::move(line)] {
    try {
      platform::append(logURL_, line);
    } catch (const std::exception&) {
      // A log that cannot be written has no place to say so.
    }
  });
} catch (...) {
  // No memory or no thread: the line is lost, the caller goes on.
}

}  // namespace wakelatch
