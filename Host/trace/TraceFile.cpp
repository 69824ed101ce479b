#include "Host/trace/TraceFile.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Platform/Files.h"

namespace wakelatch::host {

platform::Descriptor TraceFile::create(const std::filesystem::path& file) {
  // A file that exists is left as it is.
  platform::Descriptor made(
      ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0600));
  if (made.get() < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot create " + file.string());
  }
  return platform::aboveStandardStreams(std::move(made));
}

TraceFile::TraceFile(platform::Descriptor file, std::function<void(const std::string&)> ended)
    : file_(std::move(file)),
      ended_(std::move(ended)),
      worker_("recorder", [this](const std::string& lines) { write(lines); }) {}

void TraceFile::line(const std::string& text) {
  bool isStuck = false;
  worker_.give([&](std::string& waiting) {
    isStuck = !waiting.empty() && waiting.size() + text.size() > maxWaitingBytes;
    if (!isStuck && !isOver_) waiting.append(text).push_back('\n');
  });
  if (isStuck) end("the disk does not take it");
}

void TraceFile::write(const std::string& lines) {
  if (!isOver_ && !platform::writeAll(file_.get(), lines)) {
    end(std::generic_category().message(errno));
  }
}

void TraceFile::end(const std::string& why) {
  if (isOver_.exchange(true)) return;
  worker_.give([](std::string& waiting) { waiting.clear(); });
  ended_(why);
}

}  // namespace wakelatch::host
