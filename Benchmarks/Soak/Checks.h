// Counts the failures of each check.
#pragma once

#include <cstdio>
#include <map>
#include <string>

namespace wakelatch::soak {

class Checks {
 public:
  int tick = 0;

  void require(bool holds, const char* what) {
    if (holds) return;
    Failure& failure = failures_.try_emplace(what, Failure{tick, 0}).first->second;
    ++failure.count;
  }
  /// Prints the failed checks; returns whether there are none.
  bool report() const {
    for (const auto& [what, failure] : failures_) {
      std::printf("FAILED %d times, first at tick %d: %s\n", failure.count, failure.firstTick,
                  what.c_str());
    }
    return failures_.empty();
  }

 private:
  struct Failure {
    int firstTick, count;
  };
  std::map<std::string, Failure> failures_;
};

}  // namespace wakelatch::soak
