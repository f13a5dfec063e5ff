#include "threads/LThread.h"

#include <algorithm>
#include <port/mach.h>

#include "base/LAtEnd.h"
#include "base/LDeadline.h"
#include "base/LSleep.h"

namespace {

constexpr int kTimeConstraintPriority = 91;
constexpr std::uint32_t kNoMachThread = 0xFFFFFFFFU;

void SetTimeConstraint(mach_port_t machThread) {
    thread_time_constraint_policy_data_t policy{};
    std::uint32_t count = THREAD_TIME_CONSTRAINT_POLICY_COUNT;
    bool bDefault = true;
    if (thread_policy_get(machThread, THREAD_TIME_CONSTRAINT_POLICY, &policy, &count, &bDefault) ==
        KERN_SUCCESS)
        thread_policy_set(machThread, THREAD_TIME_CONSTRAINT_POLICY, &policy, count);
}

} // namespace

LThread::~LThread() {
    _StopAndWait();
}

// Before the signal: who meets that finds the flag. And behind it: a start may take both back in between.
void LThread::StopThreadSoon() {
    bAsked.store(true);
    stop.Signal();
    bAsked.store(true);
}

// Also for a thread that was made and has not begun yet: it would run on a destroyed object. The destructors of
// all classes of one object come here.
void LThread::_StopAndWait() {
    if (!bCreated)
        return;
    if (bRunning.load())
        StopThreadSoon();
    if (thread.load() == pthread_self())
        return;
    finished.WaitUntilSet();
    bCreated = false;
}

// Under the start lock until the new thread has begun, so that two starts make one thread. `bRunning` goes
// before the finished signal is set: a thread that does not run may still have to be waited for.
void LThread::Start(int nNewPriority) {
    const LLockScope scope(startLock);
    if (bRunning.load())
        return;
    // The former thread sets its finished signal last; setting it after the reset below would end this one.
    if (bCreated)
        finished.WaitUntilSet();
    _Prepare(nNewPriority);
    if (_Create(_ThreadCallback, this))
        _WaitStarted(nNewPriority);
}

void LThread::_Prepare(int nNewPriority) {
    if (bAsked.exchange(false))
        stop.Reset();
    if (bUsed) {
        finished.Reset();
        started.Reset();
    }
    nPriority.store(nNewPriority);
}

// A thread that nobody could stop or wait for is not made.
bool LThread::_Create(void* (*pEntry)(void*), void* pArgument) {
    bCreated = stop.IsUsable() && finished.IsUsable() && started.IsUsable();
    // Before the thread is there: it may be through, and have taken it back, before pthread_create returns.
    bRunning.store(bCreated);
    bUsed = bCreated;
    pthread_t made;
    if (bCreated && pthread_create(&made, nullptr, pEntry, pArgument) == 0)
        return true;
    bCreated = false;
    bRunning.store(false);
    return false;
}

// On the starter.
void LThread::_WaitStarted(int nNewPriority) {
    while (ProcessWaitSignal(started, LNoTimeLimit) == LProcessWaitFailed && !started.IsSignaled()) {
    }
    SetPriority(nNewPriority);
}

// On the new thread. Nothing of the object is touched behind the finished signal: who waits for that may
// destroy it at once.
void* LThread::_ThreadCallback(void* pThread) {
    auto* pSelf = static_cast<LThread*>(pThread);
    const LAtEnd finished([pSelf] { pSelf->_SetFinished(); });
    pSelf->ThreadCallback();
    return nullptr;
}

void LThread::ThreadCallback() {
    // Not to be zeroed: without a fault its pages are not touched.
    __attribute__((uninitialized)) const LDebugSignalStack signalStack;
    const LAtEnd ended([this] { _SetEnded(); });
    dwMachThread.store(mach_thread_self());
    thread.store(pthread_self());
    started.Signal();
    ThreadFunction();
}

// The thread records and clears its handle itself, and so can be detached by nobody else.
void LThread::_SetEnded() {
    const LLockScope scope(handleLock);
    bRunning.store(false);
    pthread_detach(thread.exchange(pthread_t{}));
    dwMachThread.store(kNoMachThread);
}

// The handle lock keeps the thread from ending, and its number from naming another one, until the call is over.
void LThread::SetPriority(int nNewPriority) {
    const LLockScope scope(handleLock);
    const mach_port_t machThread = dwMachThread.load();
    if (machThread == kNoMachThread)
        return;
    if (nNewPriority == kTimeConstraintPriority)
        SetTimeConstraint(machThread);
    else
        port_thread_set_normal(machThread);
}

bool LThread::ProcessWait(unsigned int timeout) {
    if (!stop.IsUsable()) {
        LSleepMilliseconds(timeout);
        return false;
    }
    const LDeadline deadline(timeout);
    do {
        if (stop.WaitSignal(deadline.GetRemaining()) && stop.IsSignaled())
            return true;
    } while (!deadline.IsPast());
    return false;
}

int LThread::ProcessWaitSignal(LSignalObjectRef signal, unsigned int timeout) {
    const int nDescriptor = signal.GetReadDescriptor();
    if (!LSignalObjectRef::FitsSelect(nDescriptor))
        return IsToStop() ? LProcessWaitStopped : LProcessWaitFailed;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(nDescriptor, &set);
    return _Wait(nDescriptor, set, timeout);
}

int LThread::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int timeout) {
    group.Add(stop);
    fd_set copy = group.set;
    return _Wait(group.nHighest, copy, timeout);
}

// The stop descriptor is put into every wait anew: a full group refuses it, and a group that is used again
// may still hold that of a thread long gone.
int LThread::_Wait(int nHighest, fd_set& set, unsigned int timeout) const {
    const int nStop = LSignalObjectRef(stop).GetReadDescriptor();
    if (stop.IsUsable()) {
        FD_SET(nStop, &set);
        nHighest = std::max(nHighest, nStop);
    }
    if (LSignalObjectRef::SelectReadable(nHighest, set, timeout) <= 0)
        return LProcessWaitFailed;
    return stop.IsUsable() && FD_ISSET(nStop, &set) ? LProcessWaitStopped : LProcessWaitSignaled;
}
