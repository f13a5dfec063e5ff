#include <cstring>

#include "foundation/SettingsStore.h"
#include <Foundation/Foundation.h>

namespace {

using port::CFRef;

bool isTrue(const char* text) {
    text += std::strspn(text, " \t\n\v\f\r");
    if (*text == '+' || *text == '-')
        ++text;
    text += std::strspn(text, "0");
    return *text != '\0' && std::strchr("YyTt123456789", *text) != nullptr;
}

bool isTrue(CFTypeRef value) {
    const CFTypeID type = CFGetTypeID(value);
    if (type == CFBooleanGetTypeID())
        return CFBooleanGetValue(static_cast<CFBooleanRef>(value));
    if (type == CFNumberGetTypeID()) {
        double number = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberDoubleType, &number);
        return number != 0;
    }
    if (type != CFStringGetTypeID())
        return false;
    const NSRef<NSString> text = NSString::stringWithCFString(static_cast<CFStringRef>(value));
    return text && isTrue(text->UTF8String());
}

} // namespace

NSUserDefaults::NSUserDefaults(std::string file)
    : store_(std::make_unique<port::SettingsStore>(std::move(file))) {}

NSUserDefaults::~NSUserDefaults() = default;

NSUserDefaults* NSUserDefaults::standardUserDefaults() {
    static NSUserDefaults& shared = *new NSUserDefaults(port::SettingsStore::ownPath());
    return &shared;
}

NSRef<NSUserDefaults> NSUserDefaults::initWithSuiteName(const char* identifier) {
    std::string path = identifier == nullptr ? "" : port::SettingsStore::pathFor(identifier);
    return path.empty() ? NSRef<NSUserDefaults>() : NSRef(new NSUserDefaults(std::move(path)));
}

NSRef<NSString> NSUserDefaults::stringForKey(const char* key) const {
    const CFRef<CFTypeRef> value = store_->value(key);
    if (!value || CFGetTypeID(value.get()) != CFStringGetTypeID())
        return {};
    return NSString::stringWithCFString(static_cast<CFStringRef>(value.get()));
}

BOOL NSUserDefaults::boolForKey(const char* key) const {
    const CFRef<CFTypeRef> value = store_->value(key);
    return value && isTrue(value.get());
}

void NSUserDefaults::setBool(BOOL value, const char* key) {
    store_->change(key, CFRef<CFTypeRef>::retained(value ? kCFBooleanTrue : kCFBooleanFalse));
}

void NSUserDefaults::setObject(const NSString& value, const char* key) {
    store_->change(key, CFRef<CFTypeRef>(CFStringCreateWithCString(kCFAllocatorDefault, value.UTF8String(),
                                                                   kCFStringEncodingUTF8)));
}

void NSUserDefaults::removeObjectForKey(const char* key) {
    store_->change(key, {});
}

BOOL NSUserDefaults::synchronize() {
    return store_->synchronize();
}
