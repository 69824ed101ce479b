#import <Foundation/Foundation.h>
#include <mach-o/dyld.h>

#include <cstdint>
#include <string>
#include <utility>

#include "Host/SystemTools.h"

namespace wakelatch::host {
namespace {

/// Starts every tool in one language: with decimal commas `ps` would print "8,0". Not in "C", where
/// it would also print letters beyond ASCII as escapes.
class PlainLanguageRunner : public SystemTools {
 public:
  explicit PlainLanguageRunner(CommandRunning& children) : children_(children) {}

  CommandResult run(const ShellCommand& command) override {
    ShellCommand plain{"/usr/bin/env", {"LC_ALL=en_US.UTF-8", command.executable}};
    plain.arguments.insert(plain.arguments.end(), command.arguments.begin(),
                           command.arguments.end());
    return children_.run(plain);
  }

 private:
  CommandRunning& children_;
};

}  // namespace

std::unique_ptr<SystemTools> makeSystemTools(CommandRunning& children, double /*timeoutSeconds*/) {
  return std::make_unique<PlainLanguageRunner>(children);
}

double keepAwakeReadySeconds() { return 0; }

double loadSampleSeconds() { return 0; }

void serviceSystemEvents() {
  @autoreleasepool {
    // A pass without waiting delivers one source, and says so only when told to return after it.
    constexpr int enough = 100;  // should one be ready all the time
    for (int pass = 0; pass < enough; ++pass) {
      if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, true) != kCFRunLoopRunHandledSource) break;
    }
  }
}

ThermalState thermalState() {
  @autoreleasepool {
    switch (NSProcessInfo.processInfo.thermalState) {
      case NSProcessInfoThermalStateNominal:
        return ThermalState::nominal;
      case NSProcessInfoThermalStateFair:
        return ThermalState::fair;
      case NSProcessInfoThermalStateSerious:
        return ThermalState::serious;
      case NSProcessInfoThermalStateCritical:
        return ThermalState::critical;
    }
    return ThermalState::nominal;  // a step that a later system may add
  }
}

std::optional<std::filesystem::path> administratorPromptTool() { return "/usr/bin/osascript"; }

std::filesystem::path programFile() {
  std::uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);  // tells the size, with the NUL at the end
  std::string path(size, '\0');
  _NSGetExecutablePath(path.data(), &size);
  return std::filesystem::canonical(path.c_str());
}

std::filesystem::path keepAwakeTool() { return "/usr/bin/caffeinate"; }

}  // namespace wakelatch::host
