#include "corefoundation/CFObject.h"
#include <Foundation/Foundation.h>

NSRef<NSString> NSString::stringWithUTF8String(const char* text) {
    if (text == nullptr)
        return {};
    // The strict decoder of Core Foundation is the one judge of what is well-formed.
    const port::CFRef<CFStringRef> checked(
        CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingUTF8));
    return checked ? NSRef<NSString>(new NSString(text)) : NSRef<NSString>();
}

NSRef<NSString> NSString::stringWithFileSystemRepresentation(const char* path) {
    NSRef<NSString> text = stringWithUTF8String(path);
    return text ? text : NSRef<NSString>(new NSString(path, false));
}

NSRef<NSString> NSString::stringWithCFString(CFStringRef text) {
    if (text == nullptr)
        return {};
    constexpr std::size_t kMaxBytesAUnit = 3;
    std::string utf8(static_cast<std::size_t>(CFStringGetLength(text)) * kMaxBytesAUnit + 1, '\0');
    if (!CFStringGetCString(text, utf8.data(), static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8))
        return {};
    utf8.resize(utf8.find('\0'));
    return NSRef<NSString>(new NSString(std::move(utf8)));
}
