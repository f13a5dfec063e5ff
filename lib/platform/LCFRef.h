// The one owner of a Core Foundation object: releases it when it is replaced or destroyed.
//
// Thread-safety: as a plain value.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

#pragma GCC visibility push(default)

// T is a reference type of the platform, such as CFStringRef; null means none.
template <typename T>
class LCFRef {
public:
    LCFRef() = default;
    // Takes over a reference that the caller owns, as "Create" and "Copy" functions give it.
    explicit LCFRef(T pObject) : pHeld(pObject) {}
    LCFRef(const LCFRef&) = delete;
    LCFRef& operator=(const LCFRef&) = delete;
    ~LCFRef() { Reset(); }

    T Get() const { return pHeld; }
    explicit operator bool() const { return pHeld != nullptr; }

    // Releases what is held and takes over the new reference, or none.
    void Reset(T pObject = nullptr) {
        const T pOld = std::exchange(pHeld, pObject);
        if (pOld != nullptr)
            CFRelease(pOld);
    }

private:
    T pHeld = nullptr;
};

#pragma GCC visibility pop
