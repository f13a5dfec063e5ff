#include "threads/LDetachedThread.h"

// Shared by the owner and the threads that are about to end: a thread asks for its own deletion after its
// work, when the owner may be gone already.
struct LDetachedThreadsState {
    LList<LDetachedThread> loThreads;
    LLockObject lock;
    LSignalObject noneLeaving;
    int nLeaving = 0; // threads taken out of the list by themselves and not yet deleted

    void Destruct(LDetachedThread* pThread);
    LDetachedThread* TakeFirst();
    void WaitForLeaving();
};

// What a starting thread is handed: it outlives the thread object until both sides are through with it.
struct LDetachedThreadStart {
    LDetachedThread* pThread;
    std::shared_ptr<LDetachedThreadsState> pState;
    LSignalObject starterDone;
};

void LDetachedThreadsState::Destruct(LDetachedThread* pThread) {
    {
        const LLockScope scope(lock);
        if (loThreads.Detach(pThread) == nullptr)
            return;
        ++nLeaving;
    }
    delete pThread;
    const LLockScope scope(lock);
    if (--nLeaving == 0)
        noneLeaving.Signal();
}

LDetachedThread* LDetachedThreadsState::TakeFirst() {
    const LLockScope scope(lock);
    LDetachedThread* pFirst = loThreads.GetFirst();
    return pFirst == nullptr ? nullptr : loThreads.Detach(pFirst);
}

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

void LDetachedThread::StartDetached(LDetachedThreadsOwner& owner, int nNewPriority) {
    const auto start = std::make_shared<LDetachedThreadStart>();
    start->pThread = this;
    start->pState = owner.pState;
    auto handedOver = std::make_unique<std::shared_ptr<LDetachedThreadStart>>(start);
    _Prepare(nNewPriority);
    if (!start->starterDone.IsUsable() || !_Create(_ThreadCallback, handedOver.get()))
        return;
    static_cast<void>(handedOver.release());
    _WaitStarted(nNewPriority);
    start->starterDone.Signal();
}

// Nothing of the object is touched after the finished signal: whoever waited for it may delete the thread,
// unless the owner still lists it and it is deleted here. The finished signal waits for the starter, which
// still uses the object.
void* LDetachedThread::_ThreadCallback(void* pStart) {
    const std::unique_ptr<std::shared_ptr<LDetachedThreadStart>> handedOver(
        static_cast<std::shared_ptr<LDetachedThreadStart>*>(pStart));
    LDetachedThreadStart& start = **handedOver;
    LDetachedThread* pThread = start.pThread;
    pThread->ThreadCallback();
    while (!start.starterDone.IsSignaled())
        start.starterDone.WaitInLoop();
    pThread->_SetFinished();
    start.pState->Destruct(pThread);
    return nullptr;
}

LDetachedThreadsOwner::LDetachedThreadsOwner() : pState(std::make_shared<LDetachedThreadsState>()) {}

LDetachedThreadsOwner::~LDetachedThreadsOwner() {
    StopThreadsNow();
}

void LDetachedThreadsOwner::Add(LDetachedThread* pThread) {
    const LLockScope scope(pState->lock);
    pState->loThreads.AddHead(pThread);
}

void LDetachedThreadsOwner::Destruct(LDetachedThread* pThread) {
    pState->Destruct(pThread);
}

void LDetachedThreadsOwner::StopThreadsSoon() {
    const LLockScope scope(pState->lock);
    for (LDetachedThread* pThread = pState->loThreads.GetFirst(); pThread != nullptr;
         pThread = pThread->pNext)
        pThread->StopThreadSoon();
}

void LDetachedThreadsOwner::StopThreadsNow() {
    StopThreadsSoon();
    while (LDetachedThread* pThread = pState->TakeFirst()) {
        pThread->_StopAndWait();
        delete pThread;
    }
    pState->WaitForLeaving();
}
