// Numbers in the output of tools: an optional sign and plain decimals that fill the whole field,
// without regard to the locale. Pure functions, callable from any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace wakelatch::platform {

/// "42", "-1", "+007"; nothing for anything else, and for what 32 bits do not hold.
std::optional<std::int32_t> parseInt32(std::string_view field);

/// The double nearest to "8", "12.5", "-.5", "1."; nothing for anything else (no exponent, no
/// "inf"), and for what no finite double holds.
std::optional<double> parseDecimal(std::string_view field);

}  // namespace wakelatch::platform
