#include "coreservices/LaunchServices.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <string_view>

#include "corefoundation/CFObject.h"
#include "coreservices/Launcher.h"
#include "coreservices/RunningBundles.h"
#include "host/UserFolders.h"
#include <CoreServices/CoreServices.h>

namespace port {
namespace {

bool isRunning(const std::string& bundlePath) {
    bool running = false;
    forEachRunningBundle([&](pid_t, const std::string& path) {
        running = path == bundlePath;
        return !running;
    });
    return running;
}

// Empty, with errno, when the folder is no bundle with a program.
std::string programOf(const std::string& bundlePath) {
    const CFRef<CFURLRef> url(CFURLCreateFromFileSystemRepresentation(
        kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bundlePath.data()),
        static_cast<CFIndex>(bundlePath.size()), true));
    const CFRef<CFBundleRef> bundle(url ? CFBundleCreate(kCFAllocatorDefault, url.get()) : nullptr);
    errno = ENOENT; // unless the look at the program says more
    const CFRef<CFURLRef> program(bundle ? CFBundleCopyExecutableURL(bundle.get()) : nullptr);
    UInt8 path[PATH_MAX];
    if (!program || !CFURLGetFileSystemRepresentation(program.get(), true, path, sizeof path))
        return "";
    return reinterpret_cast<const char*>(path);
}

// The file name without ".app".
std::string_view nameOf(std::string_view bundlePath) {
    const std::string_view name = bundlePath.substr(bundlePath.rfind('/') + 1);
    return name.substr(0, name.rfind('.'));
}

} // namespace

bool launchApplication(const char* fullPath) {
    errno = EINVAL;
    // The process table shows real paths; a bundle reached through a link must be recognised in it.
    char bundle[PATH_MAX];
    if (fullPath == nullptr || fullPath[0] != '/' || ::realpath(fullPath, bundle) == nullptr)
        return false;
    if (isRunning(bundle))
        return true;
    const std::string program = programOf(bundle);
    if (!program.empty())
        errno = launchDetached(program, homeFolder(), nameOf(bundle));
    return !program.empty() && errno == 0;
}

} // namespace port

OSStatus LSOpenFSRef(const FSRef* ref, FSRef* launched) {
    if (!port::launchApplication(ref->path))
        return kLSApplicationNotFoundErr;
    if (launched != nullptr)
        *launched = *ref;
    return noErr;
}
