#include <AppKit/AppKit.h>

#include <unistd.h>

#include "corefoundation/CFBundle.h"
#include "coreservices/RunningBundles.h"

namespace {

using port::CFRef;

// The bundle at a path; our own is already at hand, with what was read of it.
CFRef<CFBundleRef> bundleOf(pid_t process, const std::string& path) {
    return process == ::getpid() ? CFRef<CFBundleRef>::retained(CFBundleGetMainBundle())
                                 : port::bundleAt(path);
}

NSRef<NSString> textOf(CFBundleRef bundle, CFStringRef key) {
    const CFTypeRef value = CFBundleGetValueForInfoDictionaryKey(bundle, key);
    if (value == nullptr || CFGetTypeID(value) != CFStringGetTypeID())
        return {};
    return NSString::stringWithCFString(static_cast<CFStringRef>(value));
}

NSRef<NSString> nameOf(CFBundleRef bundle, const std::string& path) {
    NSRef<NSString> name = textOf(bundle, CFSTR("CFBundleDisplayName"));
    if (!name)
        name = textOf(bundle, kCFBundleNameKey);
    if (name)
        return name;
    const std::size_t start = path.rfind('/') + 1;
    constexpr std::size_t kSuffixLength = 4; // ".app"
    name = NSString::stringWithUTF8String(path.substr(start, path.size() - start - kSuffixLength).c_str());
    return name ? name : NSString::stringWithUTF8String("");
}

// The bundle that a process runs out of, if it has that identifier.
CFRef<CFBundleRef> bundleWith(const char* identifier, pid_t process, const std::string& path) {
    CFRef<CFBundleRef> bundle = bundleOf(process, path);
    const NSRef<NSString> itsIdentifier =
        bundle ? textOf(bundle.get(), kCFBundleIdentifierKey) : NSRef<NSString>();
    return itsIdentifier && itsIdentifier->isEqualToString(identifier) ? std::move(bundle)
                                                                       : CFRef<CFBundleRef>();
}

} // namespace

port::References<NSRunningApplication>
NSRunningApplication::runningApplicationsWithBundleIdentifier(const char* identifier) {
    port::References<NSRunningApplication> found;
    port::forEachRunningBundle([&](pid_t process, const std::string& path) {
        if (const CFRef<CFBundleRef> bundle = bundleWith(identifier, process, path))
            found.push_back(
                NSRef<NSRunningApplication>(new NSRunningApplication(nameOf(bundle.get(), path), process)));
        return true;
    });
    return found;
}

bool NSRunningApplication::port_isRunning(const char* identifier, const char* localizedName) {
    bool found = false;
    port::forEachRunningBundle([&](pid_t process, const std::string& path) {
        const CFRef<CFBundleRef> bundle = bundleWith(identifier, process, path);
        found = bundle && nameOf(bundle.get(), path)->isEqualToString(localizedName);
        return !found;
    });
    return found;
}
