#include "Platform/PrefixFilter.h"

#include <bit>
#include <cstring>

#if defined(__x86_64__)
#include <tmmintrin.h>
#elif defined(__aarch64__)
#include <arm_neon.h>
#endif

namespace wakelatch::platform {
namespace {

using Sixteen = std::uint8_t __attribute__((vector_size(16)));

// pick() takes from `table` the element that each byte of `indices` (0 to 15) names. Where there is
// no instruction for it, places are looked at one by one.
#if defined(__x86_64__)
#define WAKELATCH_PICKS __attribute__((target("ssse3")))
bool canPick() {
  return __builtin_cpu_supports("ssse3") != 0;
}
WAKELATCH_PICKS inline Sixteen pick(Sixteen table, Sixteen indices) {
  return reinterpret_cast<Sixteen>(
      _mm_shuffle_epi8(reinterpret_cast<__m128i>(table), reinterpret_cast<__m128i>(indices)));
}
#elif defined(__aarch64__)
#define WAKELATCH_PICKS
constexpr bool canPick() {
  return true;
}
inline Sixteen pick(Sixteen table, Sixteen indices) {
  return reinterpret_cast<Sixteen>(
      vqtbl1q_u8(reinterpret_cast<uint8x16_t>(table), reinterpret_cast<uint8x16_t>(indices)));
}
#else
#define WAKELATCH_PICKS
constexpr bool canPick() {
  return false;
}
inline Sixteen pick(Sixteen table, Sixteen) {
  return table;
}
#endif

inline Sixteen load(const void* bytes) {
  Sixteen result;
  std::memcpy(&result, bytes, sizeof result);
  return result;
}

}  // namespace

void PrefixFilter::add(std::string_view prefix, std::size_t group) {
  const auto bit = static_cast<std::uint8_t>(1U << group);
  for (std::size_t i = 0; i < positions_.size(); ++i) {
    for (std::size_t half = 0; half < 16; ++half) {
      const bool isAny = i >= prefix.size();
      const std::size_t byte = isAny ? 0 : static_cast<unsigned char>(prefix[i]);
      if (isAny || byte >> 4 == half) positions_[i].upper[half] |= bit;
      if (isAny || (byte & 15) == half) positions_[i].lower[half] |= bit;
    }
  }
}

std::uint64_t PrefixFilter::groupsAt(std::string_view text, std::size_t position) const {
  std::uint64_t result = 0xFF;
  for (std::size_t i = 0; i < positions_.size() && position + i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[position + i]);
    result &= positions_[i].upper[byte >> 4] & positions_[i].lower[byte & 15];
  }
  return result;
}

WAKELATCH_PICKS void PrefixFilter::search(std::string_view text,
                                          std::vector<Candidate>& candidates) const {
  std::size_t start = 0;
  if (canPick()) {
    Sixteen upper[prefixLength], lower[prefixLength];
    for (std::size_t i = 0; i < prefixLength; ++i) {
      upper[i] = load(positions_[i].upper.data());
      lower[i] = load(positions_[i].lower.data());
    }
    for (; text.size() - start >= sizeof(Sixteen) + prefixLength - 1; start += sizeof(Sixteen)) {
      Sixteen passed = ~Sixteen{};
      for (std::size_t i = 0; i < prefixLength; ++i) {
        const Sixteen bytes = load(text.data() + start + i);
        passed &= pick(upper[i], bytes >> 4) & pick(lower[i], bytes & 15);
      }
      std::array<std::uint64_t, 2> halves;
      std::memcpy(halves.data(), &passed, sizeof passed);
      if ((halves[0] | halves[1]) == 0) continue;
      for (std::size_t base = start; std::uint64_t half : halves) {
        while (half != 0) {
          const int shift = std::countr_zero(half) & ~7;
          candidates.push_back({base + static_cast<std::size_t>(shift) / 8, half >> shift & 0xFF});
          half &= ~(std::uint64_t(0xFF) << shift);
        }
        base += sizeof half;
      }
    }
  }
  for (; start < text.size(); ++start) {
    if (const std::uint64_t passed = groupsAt(text, start)) candidates.push_back({start, passed});
  }
}

}  // namespace wakelatch::platform
