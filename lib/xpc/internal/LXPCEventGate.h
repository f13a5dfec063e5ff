// Tells the events of an endpoint whether they may begin, and its destructor when they have left. Internal to the
// XPC layer.
//
// Thread-safety: full; one atomic word, no lock. It is part of what every event shares, so that it is there as long
// as one of them.
#pragma once

#include <atomic>
#include <cstdint>

class LXPCEventScope;

class LXPCEventGate {
public:
    // Refuses further events.
    void Close();

    // Whether an event runs on another thread. When none does on a closed gate, all that events have done has
    // happened before.
    bool IsBusy() const;

    // Waits, without a limit, until a closed gate is not busy.
    void WaitForOthers() const;

private:
    friend class LXPCEventScope;
    bool _Enter();
    void _Leave();

    std::atomic<std::uint32_t> dwState = 0; // the closed bit, and the number of events that run
};

// One event in the endpoint: to be entered before the sink is called.
class LXPCEventScope {
public:
    explicit LXPCEventScope(LXPCEventGate& eventGate);
    LXPCEventScope(const LXPCEventScope&) = delete;
    LXPCEventScope& operator=(const LXPCEventScope&) = delete;
    ~LXPCEventScope();

    // False when the gate is closed: the event is dropped.
    explicit operator bool() const { return bEntered; }

    // The number of events of that gate on the stack of the calling thread.
    static std::uint32_t CountOnThisThread(const LXPCEventGate& eventGate);

private:
    LXPCEventGate& gate;
    LXPCEventScope* pOuter;
    bool bEntered;
};
