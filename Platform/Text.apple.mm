#import <Foundation/Foundation.h>

#include "Platform/TextSystem.h"
#include "Platform/Utf8.h"

namespace wakelatch::platform::system {
namespace {

// Core Foundation, because NSString's initializers take a byte order mark off. Nil when it refuses.
NSMutableString* makeString(std::string_view text) {
  NSString* const string = CFBridgingRelease(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(text.data()),
                              static_cast<CFIndex>(text.size()), kCFStringEncodingUTF8,
                              /*isExternalRepresentation=*/false));
  return [string mutableCopy];
}

std::string utf8(NSString* string) {
  std::string result([string lengthOfBytesUsingEncoding:NSUTF8StringEncoding], '\0');
  [string getBytes:result.data()
           maxLength:result.size()
          usedLength:nullptr
            encoding:NSUTF8StringEncoding
             options:0
               range:NSMakeRange(0, string.length)
      remainingRange:nullptr];
  return result;
}

/// `text` with `map` applied, or as it is where there is no such string.
template <class Map>
std::string mapped(std::string_view text, Map map) {
  @autoreleasepool {
    NSMutableString* const string = makeString(text);
    NSString* const result = string == nil ? nil : map(string);
    return result == nil ? std::string(text) : utf8(result);
  }
}

}  // namespace

std::string lowercased(std::string_view text) {
  return mapped(text, [](NSMutableString* string) { return string.lowercaseString; });
}

std::string composed(std::string_view text) {
  return mapped(
      text, [](NSMutableString* string) { return string.precomposedStringWithCanonicalMapping; });
}

std::string folded(std::string_view text, Accents accents) {
  return mapped(text, [accents](NSMutableString* string) {
    const auto reference = (__bridge CFMutableStringRef)string;
    CFStringNormalize(reference, kCFStringNormalizationFormC);
    CFOptionFlags options = kCFCompareCaseInsensitive;
    if (accents == Accents::drop) options |= kCFCompareDiacriticInsensitive;
    CFStringFold(reference, static_cast<CFStringCompareFlags>(options), /*locale=*/nullptr);
    return string;
  });
}

std::size_t clusters(std::string_view text, std::size_t& count) {
  @autoreleasepool {
    NSString* const string = makeString(text);
    if (string == nil) {
      std::size_t length = 0;
      for (; count > 0 && length < text.size(); --count) {
        length += firstScalar(text.substr(length)).length;
      }
      return length;
    }
    NSUInteger end = 0;
    for (; count > 0 && end < string.length; --count) {
      const bool isReturn = [string characterAtIndex:end] == '\r';
      end = NSMaxRange([string rangeOfComposedCharacterSequenceAtIndex:end]);
      // A cluster, but no composed character sequence.
      if (isReturn && end < string.length && [string characterAtIndex:end] == '\n') ++end;
    }
    return [[string substringToIndex:end] lengthOfBytesUsingEncoding:NSUTF8StringEncoding];
  }
}

bool isDecimalDigit(char32_t character) {
  @autoreleasepool {
    return [NSCharacterSet.decimalDigitCharacterSet longCharacterIsMember:character];
  }
}

std::string userLanguage() {
  @autoreleasepool {
    NSString* const language = NSLocale.currentLocale.languageCode;
    return language == nil ? std::string() : utf8(language);
  }
}

}  // namespace wakelatch::platform::system
