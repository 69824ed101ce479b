// Measures two ways of doing one task by turns, so that noise of the machine affects both.
#pragma once

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

namespace wakelatch::bench {

/// Runs one side once and returns its cost, in a unit that both sides share.
using Side = std::function<double()>;

/// Runs `ours` and `theirs` alternately and prints the ratio of their medians with its goal.
/// @param isFloor  whether the goal is a lower bound (of a rate), not an upper one (of a cost)
inline void compare(const char* what, const char* unit, const Side& ours, const Side& theirs,
                    double goal, int rounds = 15, bool isFloor = false) {
  std::vector<double> our, their;
  ours(), theirs();  // warms up the caches
  for (int i = 0; i < rounds; ++i) {
    our.push_back(ours());
    their.push_back(theirs());
  }
  const auto median = [](std::vector<double>& samples) {
    const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
    std::nth_element(samples.begin(), middle, samples.end());
    return *middle;
  };
  const double a = median(our), b = median(their);
  std::printf("%s: %.4g against %.4g %s, ratio %.3g (goal at %s %.3g)\n", what, a, b, unit, a / b,
              isFloor ? "least" : "most", goal);
}

}  // namespace wakelatch::bench
