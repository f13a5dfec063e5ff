#include <cstring>
#include <string>

#include "corefoundation/CFObject.h"
#include "foundation/Copied.h"
#include <Foundation/Foundation.h>

namespace {

// The strict decoder of Core Foundation is the one judge of what is well-formed.
bool isUtf8(const char* text) {
    return port::CFRef<CFStringRef>(
               CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8))
               .get() != nullptr;
}

} // namespace

NSString::NSString(const char* bytes, bool isText)
    : bytes_(port::copied(bytes, std::strlen(bytes) + 1)), isText_(isText) {}

bool NSString::isEqualToString(const char* text) const {
    return std::strcmp(bytes_.get(), text) == 0;
}

NSRef<NSString> NSString::stringWithUTF8String(const char* text) {
    return text != nullptr && isUtf8(text) ? NSRef<NSString>(new NSString(text)) : NSRef<NSString>();
}

NSRef<NSString> NSString::stringWithFileSystemRepresentation(const char* path) {
    return NSRef<NSString>(new NSString(path, isUtf8(path)));
}

NSRef<NSString> NSString::stringWithCFString(CFStringRef text) {
    if (text == nullptr)
        return {};
    constexpr std::size_t kMaxBytesAUnit = 3;
    std::string utf8(static_cast<std::size_t>(CFStringGetLength(text)) * kMaxBytesAUnit + 1, '\0');
    if (!CFStringGetCString(text, utf8.data(), static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8))
        return {};
    return NSRef<NSString>(new NSString(utf8.c_str()));
}
