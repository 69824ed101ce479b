// AXUIElement and NSWorkspace. Compiled with automatic reference counting, which covers Objective-C
// objects alone: what Core Foundation hands over is owned by an Element or bridged.
#import <AppKit/AppKit.h>
#import <ApplicationServices/ApplicationServices.h>
#include <unistd.h>

#include <cmath>
#include <limits>

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
        // Its own windows may be read on the main thread alone, and show what it says of others.
        if (application.processIdentifier == ::getpid()) continue;
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

  Value attribute(const Element& element, std::string_view name, const Limits& limits) override {
    if (!element) return {};
    @autoreleasepool {
      const auto asked = static_cast<AXUIElementRef>(element.get());
      // Of this object alone: its application and its children have their own.
      if (std::isfinite(limits.seconds)) {
        AXUIElementSetMessagingTimeout(asked, static_cast<float>(limits.seconds));
      }
      NSString* key = [[NSString alloc] initWithBytes:name.data()
                                               length:name.size()
                                             encoding:NSUTF8StringEncoding];
      const auto attribute = (__bridge CFStringRef)key;
      CFTypeRef copied = nullptr;
      AXError error = kAXErrorNotImplemented;
      if (limits.elements != std::numeric_limits<std::size_t>::max()) {
        CFArrayRef part = nullptr;
        error = AXUIElementCopyAttributeValues(asked, attribute, 0,
                                               static_cast<CFIndex>(limits.elements), &part);
        copied = part;
      }
      // Also for an application that gives no parts of lists.
      if (error == kAXErrorNotImplemented) {
        error = AXUIElementCopyAttributeValue(asked, attribute, &copied);
      }
      const Element value = adopt(copied);
      if (error == kAXErrorCannotComplete) return NoAnswer{};
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
  static auto& accessibility = *new SystemAccessibility;  // a thread may use it during exit
  return accessibility;
}

}  // namespace wakelatch::platform
