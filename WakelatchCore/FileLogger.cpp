#include "WakelatchCore/FileLogger.h"

#include <exception>
#include <string>
#include <utility>

#include "Platform/Clock.h"
#include "Platform/Files.h"

namespace wakelatch {
namespace {

std::filesystem::path defaultLogURL() {
  return platform::homeDirectory() / "Library/Logs/Wakelatch.log";
}

}  // namespace

FileLogger::FileLogger(std::optional<std::filesystem::path> logURL)
    : logURL_(std::make_shared<const std::filesystem::path>(logURL ? std::move(*logURL)
                                                                   : defaultLogURL())) {}

FileLogger& FileLogger::shared() {
  static FileLogger& logger = *new FileLogger;
  struct DrainAtExit {
    ~DrainAtExit() { logger.queue_.drain(); }
  };
  static const DrainAtExit drainAtExit;
  return logger;
}

void FileLogger::log(std::string_view message) noexcept try {
  // The task must not use the logger, which may be destroyed before it runs.
  queue_.async([file = logURL_, time = platform::now(), text = std::string(message)] {
    try {
      const std::string line = "[" + platform::iso8601(time) + "] " + text + "\n";
      platform::append(*file, line, platform::Owner::anybody);
    } catch (const std::exception&) {
      // There is nowhere to report this.
    }
  });
} catch (...) {
  // No memory or no thread: the line is lost, the caller goes on.
}

}  // namespace wakelatch
