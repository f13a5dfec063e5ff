#include <AppKit/AppKit.h>
#include <CoreServices/CoreServices.h>

OSStatus LSOpenFSRef(const FSRef* ref, FSRef* launched) {
    if (!NSWorkspace::sharedWorkspace()->launchApplication(ref->path))
        return kLSApplicationNotFoundErr;
    if (launched != nullptr)
        *launched = *ref;
    return noErr;
}
