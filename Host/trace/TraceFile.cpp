#include "Host/trace/TraceFile.h"

#include <fcntl.h>

#include <cerrno>
#include <system_error>
#include <utility>

#include "Platform/ChildProcess.h"
#include "Platform/Descriptor.h"
#include "Platform/Files.h"
#include "Platform/Thread.h"

namespace wakelatch::host {

platform::Descriptor TraceFile::create(const std::filesystem::path& file) {
  // What is in its place is left as it is.
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
      thread_(platform::startThread("recorder", [this] { run(); })) {}

TraceFile::~TraceFile() {
  {
    const platform::MutexLock lock(mutex_);
    isEnding_ = true;
  }
  wake_.notifyAll();
  thread_.join();
}

void TraceFile::line(std::string text) {
  bool isStuck = false;
  {
    const platform::MutexLock lock(mutex_);
    if (isOver_) return;
    isStuck = !waiting_.empty() && waiting_.size() + text.size() > maxWaitingBytes;
    if (!isStuck) waiting_.append(text).push_back('\n');
  }
  if (isStuck) return end("the disk does not take it");
  wake_.notifyAll();
}

bool TraceFile::isOpen() {
  const platform::MutexLock lock(mutex_);
  return !isOver_;
}

bool TraceFile::finish(double seconds) {
  const auto deadline = platform::deadlineIn(seconds);
  platform::MutexLock lock(mutex_);
  while (isBusy_ || !waiting_.empty()) {
    if (!written_.waitUntil(lock, deadline)) return false;
  }
  return true;
}

void TraceFile::run() {
  for (;;) {
    std::string lines;
    {
      platform::MutexLock lock(mutex_);
      isBusy_ = false;
      written_.notifyAll();
      while (waiting_.empty() && !isEnding_) wake_.wait(lock);
      if (waiting_.empty()) return;
      lines.swap(waiting_);
      isBusy_ = true;
    }
    if (!platform::writeAll(file_.get(), lines)) {
      end(std::generic_category().message(errno));
    }
  }
}

void TraceFile::end(const std::string& why) {
  {
    const platform::MutexLock lock(mutex_);
    if (std::exchange(isOver_, true)) return;
    waiting_.clear();
  }
  ended_(why);
}

}  // namespace wakelatch::host
