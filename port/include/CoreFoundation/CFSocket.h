// Descriptors watched by the main run loop: sockets, pipes and whatever else can be polled.
//
// Thread-safety: every function may be used on any thread. Call-backs come on the main thread; one that is
// under way while another thread invalidates the socket runs to its end.
#pragma once

#include <CoreFoundation/CFRunLoop.h>

using CFSocketRef = struct __CFSocket*;

#pragma GCC visibility push(default)

using CFSocketNativeHandle = int;
using CFSocketCallBackType = CFOptionFlags;

constexpr CFSocketCallBackType kCFSocketReadCallBack = 1; // there is something to read; nothing is read

constexpr CFOptionFlags kCFSocketAutomaticallyReenableReadCallBack = 1;
constexpr CFOptionFlags kCFSocketCloseOnInvalidate = 128;

using CFSocketCallBack = void (*)(CFSocketRef socket, CFSocketCallBackType type, CFDataRef address,
                                  const void* data, void* info);

// `version` is 0 and the functions are null: `info` is the caller's to keep.
struct CFSocketContext {
    CFIndex version;
    void* info;
    const void* (*retain)(const void* info);
    void (*release)(const void* info);
    CFStringRef (*copyDescription)(const void* info);
};

// Watches the descriptor, which stays open as long as the socket is valid, once the socket's source is in the
// run loop. Each call makes a socket of its own: several may watch one descriptor. Both flags above are set and
// call-backs enabled. Null when the descriptor is not open, no further one can be had, or another call-back
// than kCFSocketReadCallBack is asked for. The caller releases it.
CFSocketRef CFSocketCreateWithNative(CFAllocatorRef allocator, CFSocketNativeHandle native,
                                     CFOptionFlags callBackTypes, CFSocketCallBack callBack,
                                     const CFSocketContext* context);

CFSocketNativeHandle CFSocketGetNative(CFSocketRef socket);

// With kCFSocketAutomaticallyReenableReadCallBack the call-back comes as long as there is something to read;
// without it once, until CFSocketEnableCallBacks arms it again. kCFSocketCloseOnInvalidate: the descriptor is
// closed with the socket.
CFOptionFlags CFSocketGetSocketFlags(CFSocketRef socket);
void CFSocketSetSocketFlags(CFSocketRef socket, CFOptionFlags flags);

void CFSocketEnableCallBacks(CFSocketRef socket, CFOptionFlags callBackTypes);

// No call-back starts afterwards. Releasing the last reference invalidates as well.
void CFSocketInvalidate(CFSocketRef socket);

// The source that puts the socket into the run loop; it retains the socket. The order is ignored. The caller
// releases it.
CFRunLoopSourceRef CFSocketCreateRunLoopSource(CFAllocatorRef allocator, CFSocketRef socket, CFIndex order);

#pragma GCC visibility pop
