// The bodies of the run loop and of its sources. The waiting is the main loop's.
//
// Thread-safety: every function may be called from any thread.
#pragma once

#include <atomic>

#include <CoreFoundation/CFSocket.h>

#include "corefoundation/CFObject.h"

struct __CFRunLoop final : port::CFObject {
    static __CFRunLoop& shared();

    // One run of the loop, until it is stopped or `turn` says that it ends. True when it was stopped.
    template <typename Turn>
    bool run(Turn turn) {
        const bool outer = stopped_.exchange(false);
        ++depth_;
        bool stopped = false;
        while (!(stopped = stopped_) && turn()) {
        }
        --depth_;
        if (outer)
            stop(); // this run may have taken its wake-up
        else
            stopped_ = false;
        return stopped;
    }
    void stop();

private:
    __CFRunLoop() : CFObject(port::CFKind::RunLoop) {}

    std::atomic<unsigned> depth_{0};
    std::atomic<bool> stopped_{false}; // the innermost run
};

struct __CFRunLoopSource final : port::CFObject {
    explicit __CFRunLoopSource(__CFSocket& socket);
    ~__CFRunLoopSource() override;

    // Puts the source in or takes it out.
    void schedule(bool in);

private:
    __CFSocket& socket_;
    std::atomic<bool> isIn_{false};
};
