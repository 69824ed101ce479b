// Sentences for the user, apart from a command's data.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "Platform/Mutex.h"

namespace wakelatch::host {

/// Prints "wakelatch: " and the text as a line of its own on standard error. Blocks as that does: a
/// running watch has a Notifier instead.
void printNotice(const std::string& text);

/// What a running watch tells its user, each thing once. May be used from any thread.
class Notifier {
 public:
  /// @param sink  takes one sentence at a time; called from any thread, must not block
  using Sink = std::function<void(const std::string&)>;
  explicit Notifier(Sink sink) : sink_(std::move(sink)) {}

  /// Tells something that has happened.
  void tell(const std::string& text) const { sink_(text); }

  /// Tells a problem when it begins and when its text changes. An empty text ends the problem; if
  /// it comes back it is told again.
  void problem(const std::string& topic, const std::string& text);

 private:
  const Sink sink_;
  platform::Mutex mutex_;
  std::map<std::string, std::string> problems_ WAKELATCH_GUARDED_BY(mutex_);  ///< by topic
};

}  // namespace wakelatch::host
