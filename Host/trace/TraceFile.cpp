#include "Host/trace/TraceFile.h"

#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

#include "Platform/Descriptor.h"
#include "Platform/Files.h"
#include "Platform/Thread.h"

namespace wakelatch::host {
namespace {

/// What is in a file's place is left as it is.
std::filesystem::path created(const std::filesystem::path& file) {
  const platform::Descriptor made(
      ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  if (made.get() < 0) {
    throw std::system_error(errno, std::generic_category(), "cannot create " + file.string());
  }
  return std::filesystem::absolute(file);
}

}  // namespace

TraceFile::TraceFile(const std::filesystem::path& file,
                     std::function<void(const std::string&)> ended)
    : file_(created(file)),
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
    waiting_.append(text).push_back('\n');
    isStuck = waiting_.size() > maxWaitingBytes;
  }
  if (isStuck) return end("the disk does not take it");
  wake_.notifyAll();
}

bool TraceFile::finish(double seconds) {
  const auto deadline =
      std::chrono::steady_clock::now() +
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::duration<double>(seconds));
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
    try {
      platform::append(file_, lines);
    } catch (const std::system_error& error) {
      end(error.what());
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
