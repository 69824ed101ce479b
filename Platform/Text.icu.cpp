#include <unicode/ubrk.h>
#include <unicode/ucasemap.h>
#include <unicode/uchar.h>
#include <unicode/uloc.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>

#include <cstdint>
#include <memory>
#include <new>

#include "Platform/TextSystem.h"

namespace wakelatch::platform::system {
namespace {

// With valid text and large enough buffers ICU fails only when memory or its own data is missing.
void require(UErrorCode status) {
  if (U_FAILURE(status)) throw std::bad_alloc();
}

std::int32_t length(std::size_t size) {
  return static_cast<std::int32_t>(size);
}

std::u16string utf16(std::string_view text) {
  std::u16string result(text.size(), u'\0');
  std::int32_t used = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strFromUTF8(result.data(), length(result.size()), &used, text.data(), length(text.size()),
                &status);
  require(status);
  result.resize(static_cast<std::size_t>(used));
  return result;
}

std::string utf8(std::u16string_view text) {
  std::string result(3 * text.size(), '\0');
  std::int32_t used = 0;
  UErrorCode status = U_ZERO_ERROR;
  u_strToUTF8(result.data(), length(result.size()), &used, text.data(), length(text.size()),
              &status);
  require(status);
  result.resize(static_cast<std::size_t>(used));
  return result;
}

const UNormalizer2* nfc() {
  static const UNormalizer2* const instance = [] {
    UErrorCode status = U_ZERO_ERROR;
    const UNormalizer2* normalizer = unorm2_getNFCInstance(&status);
    require(status);
    return normalizer;
  }();
  return instance;
}

std::u16string composed(std::u16string_view text) {
  std::u16string result(3 * text.size(), u'\0');  // the most that NFC grows a text by
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t used = unorm2_normalize(nfc(), text.data(), length(text.size()), result.data(),
                                             length(result.size()), &status);
  require(status);
  result.resize(static_cast<std::size_t>(used));
  return result;
}

/// The letter under the accents of `character`: itself if it has none that may be dropped.
UChar32 unaccented(UChar32 character) {
  UChar decomposition[32];
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t used = unorm2_getDecomposition(nfc(), character, decomposition,
                                                    length(std::size(decomposition)), &status);
  require(status);
  if (used <= 0) return character;
  UChar32 base = 0;
  U16_GET(decomposition, 0, 0, used, base);
  return static_cast<char32_t>(base) < firstUnaccented ? base : character;
}

}  // namespace

std::string lowercased(std::string_view text) {
  static UCaseMap* const root = [] {
    UErrorCode status = U_ZERO_ERROR;
    UCaseMap* map = ucasemap_open("", U_FOLD_CASE_DEFAULT, &status);
    require(status);
    return map;
  }();
  std::string result(3 * text.size(), '\0');  // the most that a mapping grows a text by
  UErrorCode status = U_ZERO_ERROR;
  const std::int32_t used = ucasemap_utf8ToLower(root, result.data(), length(result.size()),
                                                 text.data(), length(text.size()), &status);
  require(status);
  result.resize(static_cast<std::size_t>(used));
  return result;
}

std::string composed(std::string_view text) {
  return utf8(composed(utf16(text)));
}

std::string folded(std::string_view text, Accents accents) {
  const std::u16string source = composed(utf16(text));
  std::u16string result;
  bool dropsMarks = false;
  for (std::size_t position = 0; position < source.size();) {
    UChar32 character = 0;
    U16_NEXT(source, position, source.size(), character);
    const bool isMark = u_hasBinaryProperty(character, UCHAR_GRAPHEME_EXTEND);
    if (isMark && dropsMarks) continue;
    if (accents == Accents::drop) character = unaccented(character);

    UChar base[U16_MAX_LENGTH], fold[8];
    std::int32_t baseLength = 0;
    U16_APPEND_UNSAFE(base, baseLength, character);
    UErrorCode status = U_ZERO_ERROR;
    const std::int32_t used = u_strFoldCase(fold, length(std::size(fold)), base, baseLength,
                                            U_FOLD_CASE_DEFAULT, &status);
    require(status);
    result.append(fold, static_cast<std::size_t>(used));
    const bool isLetter = !isMark || fold[0] != base[0];  // the iota below folds to one
    if (isLetter) dropsMarks = accents == Accents::drop && result.back() < firstUnaccented;
  }
  return utf8(result);
}

std::size_t clusters(std::string_view text, std::size_t& count) {
  struct Close {
    void operator()(UText* utext) const { utext_close(utext); }
    void operator()(UBreakIterator* breaks) const { ubrk_close(breaks); }
  };
  UErrorCode status = U_ZERO_ERROR;
  const std::unique_ptr<UText, Close> utext(
      utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status));
  const std::unique_ptr<UBreakIterator, Close> breaks(
      ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status));
  if (U_SUCCESS(status)) ubrk_setUText(breaks.get(), utext.get(), &status);
  require(status);
  std::int32_t end = 0;
  for (; count > 0; --count) {
    const std::int32_t next = ubrk_next(breaks.get());
    if (next == UBRK_DONE) break;
    end = next;
  }
  return static_cast<std::size_t>(end);
}

bool isDecimalDigit(char32_t character) {
  return u_charType(static_cast<UChar32>(character)) == U_DECIMAL_DIGIT_NUMBER;
}

std::string userLanguage() {
  char language[ULOC_LANG_CAPACITY] = "";
  UErrorCode status = U_ZERO_ERROR;
  uloc_getLanguage(uloc_getDefault(), language, length(sizeof language), &status);
  return U_SUCCESS(status) ? language : "";
}

}  // namespace wakelatch::platform::system
