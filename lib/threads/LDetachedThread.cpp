#include "threads/LDetachedThread.h"

#include "base/LAtEnd.h"
#include "base/internal/LCounted.h"

// Shared by the owner and the threads that are about to end: a thread asks for its own deletion after its
// work, when the owner may be gone already.
struct LDetachedThreadsState final : LCounted {
    LList<LDetachedThread> loThreads;
    LLockObject lock;
    LSignalObject noneLeaving;
    int nLeaving = 0; // threads that have left the list and are not yet deleted

    bool Leave(LDetachedThread* pThread);
    void Delete(LDetachedThread* pLeft);
    LDetachedThread* TakeFirst();
    void WaitForLeaving();
};

// What a starting thread is handed: it outlives the thread object until both sides are through with it.
struct LDetachedThreadStart final : LCounted {
    LDetachedThreadStart(LDetachedThread* pStarted, const port::Reference<LDetachedThreadsState>& pShared)
        : pThread(pStarted), pState(pShared) {}

    LDetachedThread* const pThread;
    const port::Reference<LDetachedThreadsState> pState;
    LLockObject starterBusy; // held by the starter as long as it uses the thread object
};

// Whoever takes a thread out of the list deletes it: the thread itself at its end, or its owner. The list is
// under the lock, so it is one of them only; the count keeps the owner until the deletion is over.
bool LDetachedThreadsState::Leave(LDetachedThread* pThread) {
    const LLockScope scope(lock);
    if (loThreads.Detach(pThread) == nullptr)
        return false;
    ++nLeaving;
    return true;
}

// Stopped before its own destructors begin, which may take away what its function uses.
void LDetachedThreadsState::Delete(LDetachedThread* pLeft) {
    pLeft->_StopAndWait();
    delete pLeft;
    const LLockScope scope(lock);
    if (--nLeaving == 0)
        // Under the lock: a `Reset` cannot fall between the count and the signal.
        noneLeaving.Signal();
}

LDetachedThread* LDetachedThreadsState::TakeFirst() {
    const LLockScope scope(lock);
    LDetachedThread* pFirst = loThreads.GetFirst();
    if (pFirst == nullptr)
        return nullptr;
    ++nLeaving;
    return loThreads.Detach(pFirst);
}

// The signal alone does not tell: another thread may be leaving again by the time that the wait is over.
void LDetachedThreadsState::WaitForLeaving() {
    for (;;) {
        {
            const LLockScope scope(lock);
            if (nLeaving == 0)
                return;
            noneLeaving.Reset();
        }
        noneLeaving.WaitInLoop();
    }
}

// Under the owner's lock: a thread is either not listed or one that can be waited for.
bool LDetachedThread::_CreateListed(LDetachedThreadsState& state, void* pStart, int nNewPriority) {
    const LLockScope scope(state.lock);
    state.loThreads.Detach(this);
    _Prepare(nNewPriority);
    if (!_Create(_ThreadCallback, pStart))
        return false;
    state.loThreads.AddHead(this);
    return true;
}

bool LDetachedThread::StartDetached(LDetachedThreadsOwner& owner, int nNewPriority) {
    const port::Reference start(new LDetachedThreadStart(this, owner.pState));
    port::Reference handedOver = start;
    const LLockScope busy(start->starterBusy);
    if (!_CreateListed(*start->pState, handedOver.get(), nNewPriority))
        return false;
    static_cast<void>(handedOver.release());
    // From here on the thread may have ended; `busy` keeps it from deleting this object.
    _WaitStarted(nNewPriority);
    return true;
}

void* LDetachedThread::_ThreadCallback(void* pStart) {
    const port::Reference start(static_cast<LDetachedThreadStart*>(pStart));
    const LAtEnd ended([&start] { _EndDetached(*start); });
    start->pThread->ThreadCallback();
    return nullptr;
}

// The starter still uses the object, so it is waited for. A thread that has left the list is deleted here; of
// one that somebody else has taken nothing is touched after the finished signal. Leaving comes first: after the
// signal another thread may stand at the same address.
void LDetachedThread::_EndDetached(LDetachedThreadStart& start) {
    // Nothing is guarded by it: having had it means that StartDetached is through.
    start.starterBusy.Lock();
    start.starterBusy.Unlock();
    const bool bLeft = start.pState->Leave(start.pThread);
    start.pThread->_SetFinished();
    if (bLeft)
        start.pState->Delete(start.pThread);
}

LDetachedThreadsOwner::LDetachedThreadsOwner() : pState(new LDetachedThreadsState) {}

LDetachedThreadsOwner::~LDetachedThreadsOwner() {
    StopThreadsNow();
}

void LDetachedThreadsOwner::Add(LDetachedThread* pThread) {
    const LLockScope scope(pState->lock);
    pState->loThreads.AddHead(pThread);
}

void LDetachedThreadsOwner::Destruct(LDetachedThread* pThread) {
    if (pState->Leave(pThread))
        pState->Delete(pThread);
}

void LDetachedThreadsOwner::StopThreadsSoon() {
    const LLockScope scope(pState->lock);
    for (LDetachedThread* pThread = pState->loThreads.GetFirst(); pThread != nullptr;
         pThread = pThread->pNext)
        pThread->StopThreadSoon();
}

// All are asked before the first is waited for, so that they end side by side. Those that have left the list by
// themselves are waited for last.
void LDetachedThreadsOwner::StopThreadsNow() {
    StopThreadsSoon();
    while (LDetachedThread* pThread = pState->TakeFirst())
        pState->Delete(pThread);
    pState->WaitForLeaving();
}
