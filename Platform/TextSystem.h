// What Text.cpp needs of the system's Unicode library, one source file per system. Every text here
// is valid UTF-8, so is every result. Callable from any thread; only want of memory makes a call
// fail. A text that Core Foundation refuses comes back as it is, its characters taken for clusters.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace wakelatch::platform::system {

/// Full lower-casing of the root locale.
std::string lowercased(std::string_view text);

/// NFC.
std::string composed(std::string_view text);

enum class Accents { keep, drop };

/// Full case folding of the root locale, of the text in NFC. Dropping accents removes what
/// decomposition and combining marks add to a base below `firstUnaccented`, before folding case;
/// any other base keeps its marks and its composed form.
std::string folded(std::string_view text, Accents accents);

/// Accents come off Latin, Greek and Cyrillic letters, and off what shares their blocks. In other
/// scripts a mark is no accent: it makes another letter, vowel or tone. Core Foundation's limit.
inline constexpr char32_t firstUnaccented = 0x0510;

/// The length in bytes of the first `count` extended grapheme clusters; `count` becomes what it
/// exceeds the number of clusters by.
std::size_t clusters(std::string_view text, std::size_t& count);

bool isDecimalDigit(char32_t character);

/// The language of the user's locale, as ISO 639 writes it.
std::string userLanguage();

}  // namespace wakelatch::platform::system
