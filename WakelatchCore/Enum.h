// Enumerations with raw values: one table each gives the raw value, the display name, the lookup,
// the list of cases and the JSON form.
#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace wakelatch {

/// One case: its value, its raw value (text or integer) and, where the user sees it, its name.
template <class E, class Raw = std::string_view>
struct EnumCase {
  E value;                            ///< the case itself
  Raw rawValue;                       ///< stays the same for ever: stored files hold it
  std::string_view displayName = {};  ///< for the user; empty for what is never shown
};

/// The cases of `E` in their documented order; specialised beside each enumeration.
template <class E>
inline constexpr std::array<EnumCase<E>, 0> enumCases{};

/// An enumeration that has a table.
template <class E>
concept TabledEnum = (enumCases<E>.size() > 0);

/// The row of a case.
template <TabledEnum E>
constexpr const auto& enumCase(E value) {
  for (const auto& row : enumCases<E>) {
    if (row.value == value) return row;
  }
  return enumCases<E>.front();  // only for a value cast from a number that names no case
}

/// The raw value: what JSON holds.
template <TabledEnum E>
constexpr auto rawValue(E value) {
  return enumCase(value).rawValue;
}

/// The name shown to the user.
template <TabledEnum E>
constexpr std::string_view displayName(E value) {
  return enumCase(value).displayName;
}

/// The case with exactly this raw value, or nothing.
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
