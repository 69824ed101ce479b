// AXUIElement and NSWorkspace. Compiled with automatic reference counting, which covers Objective-C
// objects alone: what Core Foundation hands over is owned by an Element or bridged.
#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>

#include "Platform/Accessibility.h"

namespace wakelatch::platform {
namespace {

using Element = Accessibility::Element;
using Value = Accessibility::Value;

std::string toUtf8(NSString* text) {
  // Lossy, because a window title cut in the middle of a character is no valid Unicode.
  NSData* bytes = [text dataUsingEncoding:NSUTF8StringEncoding allowLossyConversion:YES];
  return {static_cast<const char*>(bytes.bytes), bytes.length};
}

std::optional<std::string> toOptionalUtf8(NSString* text) {
  if (text == nil) return std::nullopt;
  return toUtf8(text);
}

/// Owns `object` from now on.
Element adopt(CFTypeRef object) {
  return {object, [](const void* held) {
            if (held != nullptr) CFRelease(held);
          }};
}

bool isElement(CFTypeRef object) {
  return object != nullptr && CFGetTypeID(object) == AXUIElementGetTypeID();
}

std::vector<Element> elements(CFArrayRef list) {
  std::vector<Element> found;
  for (CFIndex i = 0; i < CFArrayGetCount(list); ++i) {
    const CFTypeRef member = CFArrayGetValueAtIndex(list, i);
    if (isElement(member)) found.push_back(adopt(CFRetain(member)));
  }
  return found;
}

class SystemAccessibility final : public Accessibility {
 public:
  std::vector<RunningApplication> runningApplications() override {
    @autoreleasepool {
      std::vector<RunningApplication> running;
      // The list changes only while the main thread's run loop runs.
      for (NSRunningApplication* application in NSWorkspace.sharedWorkspace.runningApplications) {
        running.push_back({toOptionalUtf8(application.bundleIdentifier),
                           toOptionalUtf8(application.localizedName),
                           application.processIdentifier});
      }
      return running;
    }
  }

  bool isTrusted() override { return AXIsProcessTrusted(); }

  void requestPermissionPrompt() override {
    @autoreleasepool {
      NSDictionary* options = @{(__bridge NSString*)kAXTrustedCheckOptionPrompt : @YES};
      AXIsProcessTrustedWithOptions((__bridge CFDictionaryRef)options);
    }
  }

  Element application(std::int32_t processID) override {
    return adopt(AXUIElementCreateApplication(processID));
  }

  Value attribute(const Element& element, std::string_view name) override {
    if (!element) return {};
    @autoreleasepool {
      NSString* key = [[NSString alloc] initWithBytes:name.data()
                                               length:name.size()
                                             encoding:NSUTF8StringEncoding];
      CFTypeRef copied = nullptr;
      const AXError error = AXUIElementCopyAttributeValue(
          static_cast<AXUIElementRef>(element.get()), (__bridge CFStringRef)key, &copied);
      const Element value = adopt(copied);
      if (error != kAXErrorSuccess || !value) return {};
      const CFTypeID type = CFGetTypeID(value.get());
      if (type == CFStringGetTypeID()) return toUtf8((__bridge NSString*)value.get());
      if (type == AXUIElementGetTypeID()) return value;
      if (type == CFArrayGetTypeID()) return elements(static_cast<CFArrayRef>(value.get()));
      return OtherValue{};
    }
  }
};

}  // namespace

Accessibility& systemAccessibility() {
  static SystemAccessibility accessibility;
  return accessibility;
}

}  // namespace wakelatch::platform
