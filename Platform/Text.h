// Unicode text services. Strings are UTF-8; bytes that are no UTF-8 pass through unchanged and
// match only themselves. Pure functions, callable from any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace wakelatch::platform {

/// Which letters differ in case alone.
enum class Casing {
  common,  ///< I and i
  turkic,  ///< I and ı, İ and i: Turkish and Azerbaijani
};

/// The casing of the user's locale, found out once in the life of the process.
Casing userCasing();

/// Whether `bytes` are UTF-8 throughout: no stray, missing or overlong sequence, no surrogate,
/// nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes);

/// Whether every byte of `text` is ASCII.
bool isAllAscii(std::string_view text);

/// `text` with every letter in lower case, by Unicode's full mapping without regard to any locale.
std::string lowercased(std::string_view text);

/// `text` without white space and newlines at its ends: Unicode's spaces, tab, line feed, vertical
/// tab, form feed, carriage return, U+0085, U+2028, U+2029.
std::string_view trimmed(std::string_view text);

/// `text` without white space other than line breaks at its ends: Unicode's spaces and tab. A
/// carriage return stays.
std::string_view trimmedSpaces(std::string_view text);

/// Whether `character` is a decimal digit of any script (Unicode category Nd).
bool isDecimalDigit(char32_t character);

/// Whether `text` contains `needle`, regardless of case. An empty needle is contained nowhere.
bool containsIgnoringCase(std::string_view text, std::string_view needle,
                          Casing casing = userCasing());

/// `text` in canonically composed form (NFC).
std::string composed(std::string_view text);

/// The first `count` characters as a reader sees them (extended grapheme clusters).
std::string_view firstCharacters(std::string_view text, std::size_t count);

/// Appends to `out` a form of `text` for comparing and searching byte by byte: texts that differ
/// only in case or accents have the same form, and the form of a part of a text is a part of its
/// form. Accents come off Latin, Greek and Cyrillic letters; in other scripts a mark makes another
/// letter. Line feeds and tabs become spaces; nothing else about white space changes. A text cut
/// before an ASCII character gives the same in two calls.
void appendFolded(std::string_view text, std::string& out, Casing casing = userCasing());

}  // namespace wakelatch::platform
#pragma GCC visibility pop
