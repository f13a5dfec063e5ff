#include <CoreFoundation/CoreFoundation.h>

#include <string>

#include "corefoundation/CFString.h"
#include "corefoundation/SettingsStore.h"

namespace {

constexpr const char* kAnyApplicationFile = ".GlobalPreferences";

constinit port::CFImmortal<__CFString> anyApplication{std::string_view("kCFPreferencesAnyApplication")};
constinit port::CFImmortal<__CFString> currentUser{std::string_view("kCFPreferencesCurrentUser")};
constinit port::CFImmortal<__CFString> anyHost{std::string_view("kCFPreferencesAnyHost")};

CFPropertyListRef copyValue(const char* identifier, CFStringRef key) {
    std::string name;
    const std::string path = port::SettingsStore::pathFor(identifier);
    if (path.empty() || !port::copyUtf8(key, name))
        return nullptr;
    return port::SettingsStore(path).value(name.c_str()).release();
}

} // namespace

constinit const CFStringRef kCFPreferencesAnyApplication = &anyApplication.value;
constinit const CFStringRef kCFPreferencesCurrentUser = &currentUser.value;
constinit const CFStringRef kCFPreferencesAnyHost = &anyHost.value;

CFPropertyListRef CFPreferencesCopyAppValue(CFStringRef key, CFStringRef applicationID) {
    std::string identifier;
    const CFPropertyListRef own =
        port::copyUtf8(applicationID, identifier) ? copyValue(identifier.c_str(), key) : nullptr;
    return own != nullptr ? own : copyValue(kAnyApplicationFile, key);
}

CFPropertyListRef CFPreferencesCopyValue(CFStringRef key, CFStringRef applicationID, CFStringRef userName,
                                         CFStringRef hostName) {
    if (!CFEqual(userName, kCFPreferencesCurrentUser) || !CFEqual(hostName, kCFPreferencesAnyHost))
        return nullptr;
    if (CFEqual(applicationID, kCFPreferencesAnyApplication))
        return copyValue(kAnyApplicationFile, key);
    std::string identifier;
    return port::copyUtf8(applicationID, identifier) ? copyValue(identifier.c_str(), key) : nullptr;
}
