#include "Host/Notices.h"

#include <iostream>

#include "Host/Terminal.h"

namespace wakelatch::host {

void printNotice(const std::string& text) {
  std::cerr << "wakelatch: " << printable(text) << std::endl;
}

void Notifier::problem(const std::string& topic, const std::string& text) {
  {
    const platform::MutexLock lock(mutex_);
    std::string& told = problems_[topic];
    if (told == text) return;
    told = text;
  }
  if (!text.empty()) tell(text);
}

}  // namespace wakelatch::host
