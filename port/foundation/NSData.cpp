#include <Foundation/Foundation.h>

NSRef<NSData> NSData::dataWithBytes(const void* bytes, unsigned long length) {
    return NSRef<NSData>(
        new NSData(length == 0 ? std::string() : std::string(static_cast<const char*>(bytes), length)));
}
