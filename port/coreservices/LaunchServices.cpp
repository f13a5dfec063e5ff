#include "coreservices/LaunchServices.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>
#include <string_view>

#include "corefoundation/CFBundle.h"
#include "coreservices/Launcher.h"
#include "coreservices/RunningBundles.h"
#include "host/UserFolders.h"
#include <CoreServices/CoreServices.h>

namespace port {
namespace {

constexpr const char* kLaunchMark = "LAUNCHED_AT_LOGIN=1";

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
    const CFRef<CFBundleRef> bundle = bundleAt(bundlePath);
    errno = ENOENT; // unless the look at the program says more
    return bundle ? bundle->executablePath() : "";
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
        errno = launchDetached(program, homeFolder(), {nameOf(bundle), kLaunchMark});
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
