// Threads that delete themselves, and the owner that can stop them all.
//
// Thread-safety: the owner may be used from any thread. An owner is destroyed by no thread of its own.
#pragma once

#include <port/Reference.h>

#include "base/LList.h"
#include "threads/LThread.h"

struct LDetachedThreadsState;
struct LDetachedThreadStart;

#pragma GCC visibility push(default)

class LDetachedThreadsOwner;

// A thread that its owner deletes as soon as its work has ended. Made with `new`. The owner stops it before it
// deletes it, so that a subclass need not.
class LDetachedThread : public LThread {
public:
    // Puts the thread into the owner's list and starts it. True: the object belongs to the owner and may be
    // gone already. False: no thread could be made, and the object, in no list, belongs to the caller.
    bool StartDetached(LDetachedThreadsOwner& owner, int nNewPriority);

    LDetachedThread* pNext = nullptr;

private:
    friend class LDetachedThreadsOwner;
    friend struct LDetachedThreadsState;
    static void* _ThreadCallback(void* pStart);
    static void _EndDetached(LDetachedThreadStart& start);
    bool _CreateListed(LDetachedThreadsState& state, void* pStart, int nNewPriority);
};

class LDetachedThreadsOwner {
public:
    LDetachedThreadsOwner();
    LDetachedThreadsOwner(const LDetachedThreadsOwner&) = delete;
    LDetachedThreadsOwner& operator=(const LDetachedThreadsOwner&) = delete;
    // Stops and deletes the threads that are left.
    ~LDetachedThreadsOwner();

    // Takes the thread over before it is started, which `StartDetached` does as well. Until then whoever stops
    // the owner's threads deletes it.
    void Add(LDetachedThread* pThread);

    // Stops and deletes the thread when it is listed; nothing when another party has taken it over.
    void Destruct(LDetachedThread* pThread);

    // Requests the stop of every listed thread and returns at once.
    void StopThreadsSoon();

    // Stops the threads, waits for the end of each, without a time-out, and deletes them, those that another
    // thread starts meanwhile, too. The list is empty when this returns, and no thread is still being deleted.
    void StopThreadsNow();

private:
    friend class LDetachedThread;
    port::Reference<LDetachedThreadsState> pState;
};

#pragma GCC visibility pop
