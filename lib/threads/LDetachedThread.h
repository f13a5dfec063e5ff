// Threads that delete themselves, and the owner that can stop them all.
//
// Thread-safety: the owner may be used from any thread. An owner is destroyed by no thread of its own.
#pragma once

#include <memory>

#include "base/LList.h"
#include "threads/LThread.h"

class LDetachedThreadsOwner;
struct LDetachedThreadsState;
struct LDetachedThreadStart;

// A thread that its owner deletes as soon as its work has ended. Made with `new`.
class LDetachedThread : public LThread {
public:
    // Starts the thread. It must be in the owner's list (`LDetachedThreadsOwner::Add`): one that its owner
    // does not know is not deleted. After this call the object belongs to the owner and may be gone. When no
    // thread can be made the object stays listed, without one.
    void StartDetached(LDetachedThreadsOwner& owner, int nNewPriority);

    LDetachedThread* pNext = nullptr;

private:
    friend class LDetachedThreadsOwner;
    static void* _ThreadCallback(void* pStart);
};

class LDetachedThreadsOwner {
public:
    LDetachedThreadsOwner();
    LDetachedThreadsOwner(const LDetachedThreadsOwner&) = delete;
    LDetachedThreadsOwner& operator=(const LDetachedThreadsOwner&) = delete;
    // Stops and deletes the threads that are left.
    ~LDetachedThreadsOwner();

    // Takes the thread over, before it is started.
    void Add(LDetachedThread* pThread);

    // Deletes the thread when it is listed; nothing when another party has taken it over.
    void Destruct(LDetachedThread* pThread);

    // Requests the stop of every listed thread and returns at once.
    void StopThreadsSoon();

    // Stops the threads, waits for the end of each, without a time-out, and deletes them. The list is empty
    // when this returns, and no thread is still being deleted.
    void StopThreadsNow();

private:
    friend class LDetachedThread;
    std::shared_ptr<LDetachedThreadsState> pState;
};
