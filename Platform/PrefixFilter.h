// Finds where in a text one of many byte strings may begin, far faster than it can be told which.
// A value; its const operations are callable from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#pragma GCC visibility push(default)
namespace wakelatch::platform {

/// Passes every place at which one of its prefixes stands, and some others. The prefixes are in up
/// to eight groups: the fewer and the more alike in a group, the fewer others.
class PrefixFilter {
 public:
  static constexpr std::size_t groups = 8;        ///< a bit of a byte each
  static constexpr std::size_t prefixLength = 4;  ///< in bytes; what follows does not count

  /// An empty prefix stands everywhere.
  void add(std::string_view prefix, std::size_t group);

  /// A place, and the groups that one of the prefixes standing there may belong to.
  struct Candidate {
    std::size_t position;  ///< in bytes
    std::uint64_t groups;  ///< a bit each
  };
  /// Appends the places that pass, in order.
  void search(std::string_view text, std::vector<Candidate>& candidates) const;

 private:
  /// Masks of groups that have a byte with these four bits as its upper or lower half.
  using Halves = std::array<std::uint8_t, 16>;
  struct Position {
    Halves upper = {}, lower = {};
  };

  std::uint64_t groupsAt(std::string_view text, std::size_t position) const;

  std::array<Position, prefixLength> positions_ = {};
};

}  // namespace wakelatch::platform
#pragma GCC visibility pop
