// Shared by the fuzz targets: the input as text, and properties that must hold for every input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace wakelatch::fuzz {

/// Ends the program, saying which property failed; the fuzzer then keeps the input.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "PROPERTY FAILED: %s\n", property);
  std::abort();
}

/// The input as text; `data` may be null if `size` is 0.
inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return size == 0 ? std::string_view()
                   : std::string_view(reinterpret_cast<const char*>(data), size);
}

/// The text before the first `separator`, and the text after it; without one, all and nothing.
inline std::pair<std::string_view, std::string_view> cut(std::string_view text, char separator) {
  const std::size_t at = text.find(separator);
  if (at == text.npos) return {text, {}};
  return {text.substr(0, at), text.substr(at + 1)};
}

}  // namespace wakelatch::fuzz

/// Defines the function that runs for each input: `FUZZ(text) { ... }`.
#define FUZZ(text)                                                                    \
  static void runWith(std::string_view text);                                         \
  extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) { \
    runWith(wakelatch::fuzz::textOf(data, size));                                     \
    return 0;                                                                         \
  }                                                                                   \
  static void runWith(std::string_view text)
