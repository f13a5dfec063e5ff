#include <AppKit/AppKit.h>

#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "corefoundation/CFObject.h"
#include "coreservices/Launcher.h"
#include "coreservices/RunningBundles.h"
#include "host/UserFolders.h"

namespace {

using port::CFRef;

constexpr std::chrono::milliseconds kViewerPatience{6000}; // the tool itself waits 5 s for the reply

bool isRunning(const std::string& bundlePath) {
    bool running = false;
    port::forEachRunningBundle([&](pid_t, const std::string& path) {
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

bool hasSessionBus() {
    if (std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr)
        return true;
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    return folder != nullptr && ::access((std::string(folder) + "/bus").c_str(), F_OK) == 0;
}

// Everything but letters, digits and a few marks is escaped: the comma too, which separates the elements of an
// array on the command line of the bus.
std::string fileAddress(const char* path) {
    constexpr char kDigits[] = "0123456789ABCDEF";
    std::string address = "file://";
    for (; *path != '\0'; ++path) {
        const auto byte = static_cast<unsigned char>(*path);
        const bool isPlain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                             (byte >= 'a' && byte <= 'z') || std::strchr("/-._~", byte) != nullptr;
        if (isPlain)
            address += *path;
        else
            address.append({'%', kDigits[byte >> 4], kDigits[byte & 15]});
    }
    return address;
}

} // namespace

NSWorkspace* NSWorkspace::sharedWorkspace() {
    static NSWorkspace& shared = *new NSWorkspace;
    return &shared;
}

bool NSWorkspace::launchApplication(const char* fullPath) {
    errno = EINVAL;
    // The process table shows real paths; a bundle reached through a link must be recognised in it.
    char bundle[PATH_MAX];
    if (fullPath == nullptr || fullPath[0] != '/' || ::realpath(fullPath, bundle) == nullptr)
        return false;
    if (isRunning(bundle))
        return true;
    const std::string program = programOf(bundle);
    if (!program.empty())
        errno = port::launchDetached(program, port::homeFolder(), nameOf(bundle));
    return !program.empty() && errno == 0;
}

bool NSWorkspace::selectFile(const char* fullPath, const char*) {
    const NSRef<NSURL> url = NSURL::fileURLWithPath(fullPath);
    if (!url || !hasSessionBus())
        return false;
    return port::runToEnd({"dbus-send", "--session", "--print-reply", "--reply-timeout=5000",
                           "--dest=org.freedesktop.FileManager1", "/org/freedesktop/FileManager1",
                           "org.freedesktop.FileManager1.ShowItems",
                           "array:string:" + fileAddress(url->fileSystemRepresentation()), "string:"},
                          kViewerPatience);
}
