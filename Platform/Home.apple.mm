#import <Foundation/Foundation.h>

#include "Platform/Files.h"

namespace wakelatch::platform {

std::filesystem::path homeDirectory() {
  @autoreleasepool {
    // Not what HOME says: an application started from a shell has the same files as one from the
    // Dock. For tests there is CFFIXED_USER_HOME.
    return NSFileManager.defaultManager.homeDirectoryForCurrentUser.fileSystemRepresentation;
  }
}

}  // namespace wakelatch::platform
