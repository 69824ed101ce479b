// Enumerations with raw values. Raw value, display name, lookup, list of cases and JSON form all
// come from one table per enumeration.
#pragma once

#include <array>
#include <cassert>
#include <cstddef>
#include <optional>
#include <string_view>

namespace wakelatch {

/// One case: its value, its raw value (text or integer) and, where the user sees it, its name.
template <class E, class Raw = std::string_view>
struct EnumCase {
  E value;                            ///< the case itself
  Raw rawValue;                       ///< must never change, as stored files contain it
  std::string_view displayName = {};  ///< for the user; empty if never shown
};

/// The cases of `E` in the order of their declaration; specialised beside each enumeration.
template <class E>
inline constexpr std::array<EnumCase<E>, 0> enumCases{};

/// An enumeration that has a table.
template <class E>
concept TabledEnum = (enumCases<E>.size() > 0);

/// The row of a case. A value that is no case, cast from a number, is an error of the caller: it
/// fails an assertion; without assertions the result is the first case's row.
template <TabledEnum E>
constexpr const auto& enumCase(E value) {
  for (const auto& row : enumCases<E>) {
    if (row.value == value) return row;
  }
  assert(false && "the value names no case");
  return enumCases<E>.front();
}

/// The raw value, as in JSON.
template <TabledEnum E>
constexpr auto rawValue(E value) {
  return enumCase(value).rawValue;
}

/// The name shown to the user.
template <TabledEnum E>
constexpr std::string_view displayName(E value) {
  return enumCase(value).displayName;
}

/// The case with exactly this raw value; absent if there is none.
template <TabledEnum E, class Raw>
constexpr std::optional<E> fromRawValue(const Raw& raw) {
  for (const auto& row : enumCases<E>) {
    if (row.rawValue == raw) return row.value;
  }
  return std::nullopt;
}

/// All cases, in order.
template <TabledEnum E>
constexpr auto allCases() {
  std::array<E, enumCases<E>.size()> cases{};
  for (std::size_t i = 0; i < cases.size(); ++i) cases[i] = enumCases<E>[i].value;
  return cases;
}

}  // namespace wakelatch
