#include <AppKit/AppKit.h>

#include <climits>
#include <cstdlib>

#include "corefoundation/CFObject.h"
#include "foundation/Launcher.h"
#include "foundation/Places.h"
#include "foundation/RunningBundles.h"

namespace {

using port::CFRef;

bool isRunning(const std::string& bundlePath) {
    bool running = false;
    port::forEachRunningBundle([&](pid_t, const std::string& path) {
        running = path == bundlePath;
        return !running;
    });
    return running;
}

// Empty when the folder is no bundle with a program.
std::string programOf(const std::string& bundlePath) {
    const CFRef<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bundlePath.data()),
        static_cast<CFIndex>(bundlePath.size()), true));
    const CFRef<CFBundleRef> bundle(url ? CFBundleCreate(kCFAllocatorDefault, url.get()) : nullptr);
    const CFRef<CFURLRef> program(bundle ? CFBundleCopyExecutableURL(bundle.get()) : nullptr);
    UInt8 path[PATH_MAX];
    if (!program || !CFURLGetFileSystemRepresentation(program.get(), true, path, sizeof path))
        return "";
    return reinterpret_cast<const char*>(path);
}

} // namespace

NSWorkspace* NSWorkspace::sharedWorkspace() {
    static NSWorkspace& shared = *new NSWorkspace;
    return &shared;
}

BOOL NSWorkspace::launchApplication(const char* fullPath) {
    // The process table shows real paths; a bundle reached through a link must be recognised in it.
    char bundle[PATH_MAX];
    if (fullPath == nullptr || fullPath[0] != '/' || ::realpath(fullPath, bundle) == nullptr)
        return NO;
    if (isRunning(bundle))
        return YES;
    const std::string program = programOf(bundle);
    return !program.empty() && port::launchDetached(program, port::homeFolder()) == 0;
}
