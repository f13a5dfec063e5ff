// Work for the main thread: any thread posts heap objects, whose functions run on the main thread, in its
// event loop.
//
// Thread-safety: `RunOnMainThread` and the count may be used on any thread at any time, also while another
// thread closes the target. `Init`, `Destroy` and `ThreadRunOnMainThreadDestroy` are called on the main
// thread.
//
// A target belongs to one owner, who closes it before it is destroyed: nothing reaches the owner afterwards.
// Posting costs one event and a short lock, and never waits for the main thread.
#pragma once

#include <Carbon/Carbon.h>

#include <port/Atomic.h>

#include "base/LMainThread.h"
#include "threads/LLockObject.h"

#pragma GCC visibility push(default)

// A unit of work. It is deleted after its function has run, or without that when its target is closed.
class LThreadRunOnMainThreadData {
public:
    LThreadRunOnMainThreadData() = default;
    LThreadRunOnMainThreadData(const LThreadRunOnMainThreadData&) = delete;
    LThreadRunOnMainThreadData& operator=(const LThreadRunOnMainThreadData&) = delete;
    virtual ~LThreadRunOnMainThreadData() = default;

    // Called on the main thread. May close the target it was posted to, and delete its owner.
    virtual void MainThreadFunction() = 0;
};

// A destination of posted work.
class LThreadRunOnMainThread {
public:
    // Once, before the first post: installs the handler of posted work. A second call does nothing.
    static void Init();
    // At the end, after every target is closed. Work that is posted from here on is deleted.
    static void Destroy();

    LThreadRunOnMainThread() : pCount(new Count) {}
    LThreadRunOnMainThread(const LThreadRunOnMainThread&) = delete;
    LThreadRunOnMainThread& operator=(const LThreadRunOnMainThread&) = delete;
    // The target is closed.
    virtual ~LThreadRunOnMainThread() { pCount->Release(); }

    // Takes the work over and runs it on the main thread, in the order of posting. A target that is being
    // closed, and one that cannot post, deletes it at once: false.
    bool RunOnMainThread(LThreadRunOnMainThreadData* pData);

    // Closes the target: later posts are refused, and what is still queued is deleted without being run. A
    // second call does nothing.
    void ThreadRunOnMainThreadDestroy();

    // Units posted and not yet handled or deleted.
    void IncRefCount() { pCount->Add(); }
    void DecRefCount() { pCount->Release(); }
    int GetRefCount() const { return pCount->GetUnits(); }

    // For the event queue: handles a unit of work; removes one of this target's when it is closed.
    static OSStatus EventHandler(OpaqueEventHandlerCallRef* pCall, OpaqueEventRef* pEvent, void* pUserData);
    static Boolean FlushEventFromQueueCallBack(OpaqueEventRef* pEvent, void* pTarget);
    bool FlushEventFromQueue(OpaqueEventRef* pEvent);

private:
    // Counts the units in flight and the target itself, and lives until the last of them is gone: a unit may
    // delete the target.
    class Count {
    public:
        void Add() { nReferences.fetch_add(1, port::Order::Relaxed); }
        void Release();
        int GetUnits() const { return nReferences.load(port::Order::Relaxed) - 1; }

    private:
        port::Atomic<int> nReferences{1};
    };

    bool _Post(EventRef pEvent);

    static port::Atomic<EventQueueRef> pMainQueue; // null before Init and after Destroy
    static EventHandlerUPP pHandlerProcedure;
    static EventHandlerRef pHandler;

    bool bEnabled = true;
    bool bClosing = false;
    LLockObject lock; // of the two flags, and of a post from its look at them to the queue
    Count* const pCount;
};

#pragma GCC visibility pop
