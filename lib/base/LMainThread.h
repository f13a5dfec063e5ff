// Which thread this is.
//
// Thread-safety: any thread.
#pragma once

#include <port/bsd.h>

#pragma GCC visibility push(default)

// True on the thread that the process began with.
inline bool LIsMainThread() {
    return pthread_main_np() != 0;
}

#pragma GCC visibility pop
