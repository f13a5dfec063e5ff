// Waits of the main thread that keep the application alive: while they wait for a time, a signal or a group of
// signals, they receive events and dispatch them. Work posted to the main thread runs meanwhile, too.
//
// Thread-safety: the waits belong to the main thread, and may be nested: what they dispatch may wait itself.
// Signals are set on any thread.
//
// Times are milliseconds. A signal that another thread sets ends the wait for it at once. Between events each
// wait asks its handler whether to go on; one that waits for long sleeps meanwhile, and only the waits
// without a limit wake up every 10 ms to ask. Nothing of a wait is left behind when it returns.
//
// Results: LProcessWaitSignaled (the signal or a member of the group is set, or the plain wait's time has
// passed), LProcessWaitStopped, LProcessWaitFailed (the time has passed).
#pragma once

#include <CoreFoundation/CFSocket.h>

#include "threads/LProcessInterface.h"

#pragma GCC visibility push(default)

class LProcessEventsHandler {
public:
    // Asked between events, and before the first one.
    virtual bool IsProcessEventHandlerToStop() const = 0;

    // Until the handler says stop: LProcessWaitStopped.
    int ProcessWaitForeverAndProcessEvents() const;

    // For the time: LProcessWaitSignaled. LProcessWaitStopped when the handler says stop, and after an event
    // of kind 3 was dispatched. LNoTimeLimit waits without end.
    int ProcessWaitAndProcessEvents(unsigned int timeout) const;

    // A time-out of 0 gives LProcessWaitFailed without a look at the signals; 0xFFFFFFFF is a number like
    // any other.
    int ProcessWaitSignalAndProcessEvents(LSignalObjectRef signal, unsigned int timeout) const;
    int ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group, unsigned int timeout) const;

    int ProcessWaitSignalForeverAndProcessEvents(LSignalObjectRef signal) const;

    // As LProcessClearEventQueue.
    static bool ClearEventQueue();

    // For the run loop: wakes the waits by an event of their own, which reaches no handler of the application.
    static void SocketCallBack(__CFSocket* pSocket, unsigned long dwType, const __CFData* pAddress,
                               const void* pData, void* pInfo);

protected:
    // Nobody deletes through the interface.
    ~LProcessEventsHandler() = default;
};

class LProcessEventsHandlerNeverStop final : public LProcessEventsHandler {
public:
    bool IsProcessEventHandlerToStop() const override { return false; }
};

// The waits above, by a handler that never stops. A template yields to a program's own function of that name.
template <typename = void>
int ProcessWaitAndProcessEvents(unsigned int timeout);
int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef signal);
int ProcessWaitSignalObjectAndProcessEvents(LSignalObjectRef signal, unsigned int timeout);
int ProcessWaitSignalObjectGroupAndProcessEvents(LSignalObjectGroup& group, unsigned int timeout);

// Dispatches what is queued now, and some of what that posts, without waiting; the number of events is bounded
// even when every handler posts more. True when an event was dispatched.
bool LProcessClearEventQueue();

// Dispatches the events that were posted before the call, without waiting. Those posted meanwhile stay queued.
// True when an event was dispatched.
bool LProcessClearCurrentEvents();

#pragma GCC visibility pop
