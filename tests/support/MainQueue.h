// Waits that serve the main queue meanwhile.
//
// Thread-safety: the test's main thread only.
#pragma once

#include <port/main_queue.h>

#include "support/ChildProcess.h"

// False when the condition does not come true in time.
template <typename Condition>
bool WaitFor(Condition condition, int milliseconds = 20000) {
    const long deadline = NowMilliseconds() + milliseconds;
    while (!condition()) {
        if (NowMilliseconds() >= deadline)
            return false;
        port_main_queue_drain(5);
    }
    return true;
}

inline void Serve(int milliseconds) {
    WaitFor([] { return false; }, milliseconds);
}
