#include <Foundation/Foundation.h>

#include "foundation/Copied.h"

NSData::NSData(const void* bytes, unsigned long length)
    : bytes_(port::copied(static_cast<const std::uint8_t*>(bytes), length)), length_(length) {}

NSRef<NSData> NSData::dataWithBytes(const void* bytes, unsigned long length) {
    return NSRef<NSData>(new NSData(bytes, length));
}
