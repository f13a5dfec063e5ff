#include <AppKit/AppKit.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "coreservices/LaunchServices.h"
#include "coreservices/Launcher.h"

namespace {

constexpr std::chrono::milliseconds kViewerPatience{6000}; // the tool itself waits 5 s for the reply

bool hasSessionBus() {
    if (std::getenv("DBUS_SESSION_BUS_ADDRESS") != nullptr)
        return true;
    const char* const folder = std::getenv("XDG_RUNTIME_DIR");
    return folder != nullptr && ::access((std::string(folder) + "/bus").c_str(), F_OK) == 0;
}

constexpr const char* kViewer = "org.freedesktop.FileManager1";

// Calls the peer on the session's bus. True when it answers, and not with an error.
bool call(const char* peer, const char* object, const char* method, const std::string& first,
          const char* second) {
    return hasSessionBus() &&
           port::runToEnd({"dbus-send", "--session", "--print-reply", "--reply-timeout=5000",
                           std::string("--dest=") + peer, object, method, first, second},
                          kViewerPatience);
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
    return port::launchApplication(fullPath);
}

bool NSWorkspace::port_hasFileViewer() {
    return call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus.StartServiceByName",
                std::string("string:") + kViewer, "uint32:0");
}

bool NSWorkspace::selectFile(const char* fullPath, const char*) {
    const NSRef<NSURL> url = NSURL::fileURLWithPath(fullPath);
    return url && call(kViewer, "/org/freedesktop/FileManager1", "org.freedesktop.FileManager1.ShowItems",
                       "array:string:" + fileAddress(url->fileSystemRepresentation()), "string:");
}
