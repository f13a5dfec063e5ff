// Which thread this is.
//
// Thread-safety: any thread.
#pragma once

#include <port/bsd.h>

// True on the thread that the process began with.
inline bool LIsMainThread() {
    return pthread_main_np() != 0;
}
