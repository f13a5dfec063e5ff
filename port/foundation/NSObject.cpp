#include <Foundation/Foundation.h>

void NSObject::release() const {
    if (retainCount_.fetch_sub(1, port::Order::AcquireRelease) == 1)
        const_cast<NSObject*>(this)->dealloc(); // every object is made by `new` and never constant
}

bool NSObject::respondsToSelector(const char*) const {
    return false;
}
