#include "corefoundation/CFObject.h"

CFTypeRef CFRetain(CFTypeRef object) {
    port::objectOf(object).retain();
    return object;
}

void CFRelease(CFTypeRef object) {
    port::objectOf(object).release();
}

CFTypeID CFGetTypeID(CFTypeRef object) {
    return static_cast<CFTypeID>(port::objectOf(object).kind());
}

Boolean CFEqual(CFTypeRef first, CFTypeRef second) {
    if (first == second)
        return true;
    const port::CFObject& one = port::objectOf(first);
    const port::CFObject& other = port::objectOf(second);
    return one.kind() == other.kind() && one.equals(other);
}
