#include "threads/LLockObjectShared.h"

#include "base/LSleep.h"

LLockObjectShared::~LLockObjectShared() {
    while (qwHolders.load() >= kOneLeaving)
        LSleepMilliseconds(1);
}

// The exclusive holder has the mutex all the time, so this waits for it. The signal is reset before the count
// rises: the count's fall to 0, which sets it, comes later.
void LLockObjectShared::LockShared() {
    const LLockScope scope(mutex);
    released.Reset();
    qwHolders.fetch_add(1);
}

void LLockObjectShared::UnlockShared() {
    _LeaveShared();
}

// The mutex is not taken: an upgrading holder keeps it while it waits for the others to come through here. The
// last one is counted until the signal is set: with the count at 0 another may have had the lock and left it,
// and the destructor waits for that. Nobody else touches the object after the count.
void LLockObjectShared::_LeaveShared() {
    std::int64_t qwOld = qwHolders.load();
    bool bLast;
    do
        bLast = static_cast<std::int32_t>(qwOld) == 1;
    while (!qwHolders.compare_exchange_weak(qwOld, qwOld - 1 + (bLast ? kOneLeaving : 0)));
    if (!bLast)
        return;
    released.Signal();
    qwHolders.fetch_sub(kOneLeaving);
}

// A last holder may set the signal late, after a new holder has come in; waiting on it would then spin. So it
// is reset before each wait, and set again if the count fell to 0 meanwhile. Called with the mutex held and
// never at count 0, where another waiter may still need the signal.
void LLockObjectShared::_ArmReleased() {
    released.Reset();
    if (_GetShared() == 0)
        released.Signal();
}

// The mutex is free during the wait, so that new shared holders may come in, and is had again before the count
// is looked at.
void LLockObjectShared::LockExclusive() {
    mutex.Lock();
    while (_GetShared() > 0) {
        _ArmReleased();
        mutex.Unlock();
        released.WaitInLoop();
        mutex.Lock();
    }
}

// The mutex first, then out of the count: nobody comes in between. It is kept during the wait, for those that
// leave do without it.
void LLockObjectShared::UpgradeLock() {
    mutex.Lock();
    _LeaveShared();
    while (_GetShared() > 0) {
        _ArmReleased();
        released.WaitInLoop();
    }
}

// Counted as shared before the mutex goes: who waits for the lock alone finds the count.
void LLockObjectShared::DowngradeLock() {
    released.Reset();
    qwHolders.fetch_add(1);
    mutex.Unlock();
}
