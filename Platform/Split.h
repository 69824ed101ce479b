// Cutting text at a separator. Views into the text; nothing is copied.
#pragma once

#include <cstddef>
#include <iterator>
#include <string_view>

namespace wakelatch::platform {

/// The pieces of a text between separators, in order and without the empty ones; for range-for.
class Split {
 public:
  class Iterator {
   public:
    Iterator(std::string_view text, char separator) : rest_(text), separator_(separator) {
      ++*this;
    }
    std::string_view operator*() const { return piece_; }
    Iterator& operator++() {
      std::size_t start = 0;
      while (start < rest_.size() && rest_[start] == separator_) ++start;
      rest_.remove_prefix(start);
      piece_ = rest_.substr(0, rest_.find(separator_));
      rest_.remove_prefix(piece_.size());
      return *this;
    }
    bool operator==(std::default_sentinel_t) const { return piece_.empty(); }

   private:
    std::string_view rest_;   // after the piece
    std::string_view piece_;  // empty only at the end of the text
    char separator_;
  };

  Split(std::string_view text, char separator) : text_(text), separator_(separator) {}
  Iterator begin() const { return {text_, separator_}; }
  std::default_sentinel_t end() const { return {}; }

 private:
  std::string_view text_;
  char separator_;
};

/// The last piece of `text` that is not empty; nothing but separators is returned as it is.
inline std::string_view baseName(std::string_view text, char separator) {
  const std::size_t last = text.find_last_not_of(separator);
  if (last == text.npos) return text;
  const std::string_view upToLast = text.substr(0, last + 1);
  return upToLast.substr(upToLast.rfind(separator) + 1);  // npos + 1 is 0
}

}  // namespace wakelatch::platform
