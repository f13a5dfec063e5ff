#include <cerrno>
#include <cstring>
#include <vector>

#include "corefoundation/SettingsStore.h"
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

CFRef<CFTypeRef> textFrom(const NSString& text) {
    return CFRef<CFTypeRef>(
        CFStringCreateWithCString(kCFAllocatorDefault, text.UTF8String(), kCFStringEncodingUTF8));
}

CFRef<CFTypeRef> dataFrom(const NSData& data) {
    return CFRef<CFTypeRef>(
        CFDataCreate(kCFAllocatorDefault, data.bytes(), static_cast<CFIndex>(data.length())));
}

port::Unique<port::SettingsStore> storeAt(std::string file) {
    return port::Unique<port::SettingsStore>(new port::SettingsStore(std::move(file)));
}

} // namespace

NSUserDefaults::NSUserDefaults(port::Unique<port::SettingsStore> store) : store_(std::move(store)) {}

NSUserDefaults::~NSUserDefaults() = default;

NSUserDefaults* NSUserDefaults::standardUserDefaults() {
    static NSUserDefaults& shared = *new NSUserDefaults(storeAt(port::SettingsStore::ownPath()));
    return &shared;
}

NSRef<NSUserDefaults> NSUserDefaults::initWithSuiteName(const char* identifier) {
    if (identifier == nullptr || !port::SettingsStore::isFileName(identifier))
        return {};
    return NSRef<NSUserDefaults>(new NSUserDefaults(storeAt(port::SettingsStore::pathFor(identifier))));
}

NSRef<NSString> NSUserDefaults::stringForKey(const char* key) const {
    const CFRef<CFTypeRef> value = store_->value(key);
    if (!value || CFGetTypeID(value.get()) != CFStringGetTypeID())
        return {};
    return NSString::stringWithCFString(static_cast<CFStringRef>(value.get()));
}

bool NSUserDefaults::boolForKey(const char* key) const {
    const CFRef<CFTypeRef> value = store_->value(key);
    return value && isTrue(value.get());
}

NSRef<NSData> NSUserDefaults::dataForKey(const char* key) const {
    const CFRef<CFTypeRef> value = store_->value(key);
    if (!value || CFGetTypeID(value.get()) != CFDataGetTypeID())
        return {};
    const auto data = static_cast<CFDataRef>(value.get());
    return NSData::dataWithBytes(CFDataGetBytePtr(data), static_cast<unsigned long>(CFDataGetLength(data)));
}

NSRef<NSMutableArray> NSUserDefaults::arrayForKey(const char* key) const {
    const CFRef<CFTypeRef> value = store_->value(key);
    if (!value || CFGetTypeID(value.get()) != CFArrayGetTypeID())
        return {};
    const auto stored = static_cast<CFArrayRef>(value.get());
    NSRef<NSMutableArray> texts = NSMutableArray::array();
    for (CFIndex index = 0; index < CFArrayGetCount(stored); ++index) {
        const CFTypeRef element = CFArrayGetValueAtIndex(stored, index);
        if (CFGetTypeID(element) != CFStringGetTypeID())
            continue;
        if (const auto text = NSString::stringWithCFString(static_cast<CFStringRef>(element)))
            texts->addObject(text);
    }
    return texts;
}

void NSUserDefaults::setBool(bool value, const char* key) {
    store_->change(key, CFRef<CFTypeRef>::retained(value ? kCFBooleanTrue : kCFBooleanFalse));
}

void NSUserDefaults::setObject(const NSString& value, const char* key) {
    store_->change(key, textFrom(value));
}

void NSUserDefaults::setObject(const NSData& value, const char* key) {
    store_->change(key, dataFrom(value));
}

void NSUserDefaults::setObject(const NSMutableArray& value, const char* key) {
    std::vector<CFRef<CFTypeRef>> texts;
    std::vector<const void*> elements;
    for (unsigned long index = 0; index < value.count(); ++index) {
        texts.push_back(textFrom(*value.objectAtIndex(index)));
        elements.push_back(texts.back().get());
    }
    store_->change(
        key, CFRef<CFTypeRef>(CFArrayCreate(kCFAllocatorDefault, elements.data(),
                                            static_cast<CFIndex>(elements.size()), &kCFTypeArrayCallBacks)));
}

void NSUserDefaults::port_editArray(const char* added, const char* removed, const char* key) {
    store_->editArray(key, added, removed);
}

bool NSUserDefaults::port_saveListed(const NSData& value, const char* key, const char* listKey) {
    const int error = store_->saveListed(key, dataFrom(value), listKey);
    errno = error;
    return error == 0;
}

bool NSUserDefaults::port_isSaved(const char* key) const {
    return store_->isSaved(key);
}

void NSUserDefaults::removeObjectForKey(const char* key) {
    store_->change(key, {});
}

bool NSUserDefaults::synchronize() {
    const int error = store_->synchronize();
    errno = error;
    return error == 0;
}

bool NSUserDefaults::port_removeAll() {
    const int error = store_->remove();
    errno = error;
    return error == 0;
}

const char* NSUserDefaults::port_path() const {
    return store_->path().c_str();
}

bool NSUserDefaults::port_isReadable(int* error) const {
    const int failure = store_->readError();
    if (error != nullptr)
        *error = failure;
    return failure == 0;
}
