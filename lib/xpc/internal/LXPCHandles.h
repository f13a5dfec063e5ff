// XPC objects carried as handles, and the one owner of an XPC reference. Internal to the XPC layer.
//
// Thread-safety: as plain values.
#pragma once

#include <memory>
#include <xpc/xpc.h>

static_assert(sizeof(long) >= sizeof(void*), "a handle carries a pointer");

struct LXPCReleaser {
    void operator()(void* pObject) const { xpc_release(pObject); }
};
using LXPCObjectPtr = std::unique_ptr<void, LXPCReleaser>;

inline long LXPCHandle(const void* pObject) {
    return reinterpret_cast<long>(pObject);
}
inline xpc_object_t LXPCObject(long handle) {
    return reinterpret_cast<xpc_object_t>(handle);
}
inline xpc_connection_t LXPCConnectionObject(long handle) {
    return reinterpret_cast<xpc_connection_t>(handle);
}

// Whether a handle that came from a caller names an object: neither -1 nor 0.
inline bool LXPCIsHandle(long handle) {
    return handle != -1 && handle != 0;
}
