// The one owner of a Core Foundation object: releases it when it is replaced or destroyed.
//
// Thread-safety: as a plain value.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

// T is a reference type of the platform, such as CFStringRef; null means none.
template <typename T>
class LCFRef {
public:
    LCFRef() = default;
    // Takes over a reference that the caller owns, as "Create" and "Copy" functions give it.
    explicit LCFRef(T pObject) : _pObject(pObject) {}
    LCFRef(const LCFRef&) = delete;
    LCFRef& operator=(const LCFRef&) = delete;
    ~LCFRef() { Reset(); }

    T Get() const { return _pObject; }
    explicit operator bool() const { return _pObject != nullptr; }

    // Releases what is held and takes over the new reference, or none.
    void Reset(T pObject = nullptr) {
        const T pOld = std::exchange(_pObject, pObject);
        if (pOld != nullptr)
            CFRelease(pOld);
    }

private:
    T _pObject = nullptr;
};
