// Tells the events of an endpoint whether the endpoint still lives, and its destructor when they have left.
// Internal to the XPC layer.
//
// Thread-safety: full; one atomic word, no lock. Handlers and barriers share the gate with the endpoint and
// may outlive it.
#pragma once

#include <atomic>
#include <cstdint>

class LXPCEventScope;

class LXPCEventGate {
public:
    // Refuses further events and waits, at most `dwMilliseconds`, for those that run on other threads. Only
    // the first call waits.
    void Close(unsigned dwMilliseconds);

    // Puts what the calling event has read so far before what follows a `Close`, though the event may never
    // leave: a sink may stay in its call while the process ends.
    void Settle() { dwState.fetch_add(0, std::memory_order_release); }

private:
    friend class LXPCEventScope;
    bool _Enter();
    void _Leave();

    std::atomic<std::uint32_t> dwState = 0; // the closed bit, and the number of events that run
};

// One event in the endpoint: to be entered before the endpoint is touched.
class LXPCEventScope {
public:
    explicit LXPCEventScope(LXPCEventGate& eventGate);
    LXPCEventScope(const LXPCEventScope&) = delete;
    LXPCEventScope& operator=(const LXPCEventScope&) = delete;
    ~LXPCEventScope();

    // False when the endpoint is gone: the event is dropped.
    explicit operator bool() const { return bEntered; }

    // The number of events of that gate on the stack of the calling thread.
    static std::uint32_t CountOnThisThread(const LXPCEventGate& eventGate);

private:
    LXPCEventGate& gate;
    LXPCEventScope* pOuter;
    bool bEntered;
};
