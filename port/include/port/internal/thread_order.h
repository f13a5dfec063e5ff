// What a wait on a pipe orders: the kernel makes everything that a thread did before it wrote into a pipe
// visible to the thread that sees the pipe readable. The thread sanitizer knows that of read and write, not of
// select; these two calls tell it. In other builds they are the plain write and nothing.
#pragma once

#include <cstddef>
#include <sys/select.h>
#include <sys/types.h>
#include <unistd.h>

#if defined(__SANITIZE_THREAD__)
#define PORT_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define PORT_THREAD_SANITIZER 1
#endif
#endif

#ifdef PORT_THREAD_SANITIZER

#include <sys/syscall.h>

extern "C" void __tsan_acquire(void* address);
extern "C" void __tsan_release(void* address);

namespace port {
inline char orderOfDescriptor[FD_SETSIZE];
}

// The bare call: the sanitizer's own write would count as a use of the descriptor after the release, which a
// waiter that closes the pipe at once is not ordered with.
inline ssize_t port_order_write(int readEnd, int writeEnd, const void* bytes, std::size_t size) {
    if (readEnd >= 0 && readEnd < FD_SETSIZE)
        __tsan_release(&port::orderOfDescriptor[readEnd]);
    return syscall(SYS_write, writeEnd, bytes, size);
}

inline void port_order_acquire(const fd_set& ready, int highest) {
    for (int descriptor = 0; descriptor <= highest; ++descriptor)
        if (FD_ISSET(descriptor, &ready))
            __tsan_acquire(&port::orderOfDescriptor[descriptor]);
}

#else

// Writes into the pipe with the read end `readEnd`; the result is that of `write`.
inline ssize_t port_order_write(int, int writeEnd, const void* bytes, std::size_t size) {
    return ::write(writeEnd, bytes, size);
}

// After a `select` that found the descriptors of `ready`, 0 to `highest`, readable.
inline void port_order_acquire(const fd_set&, int) {}

#endif
