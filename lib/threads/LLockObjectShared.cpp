#include "threads/LLockObjectShared.h"

void LLockObjectShared::LockShared() {
    const LLockScope scope(mutex);
    released.Reset();
    nShared.fetch_add(1);
}

void LLockObjectShared::UnlockShared() {
    _LeaveShared();
}

// The mutex is not taken: an upgrading holder keeps it while it waits for the others to come through here.
void LLockObjectShared::_LeaveShared() {
    if (nShared.fetch_sub(1) == 1)
        released.Signal();
}

// A last holder may set the signal late, after a new holder has come in; waiting on it would then spin. So it
// is reset before each wait, and set again if the count fell to 0 meanwhile. Called with the mutex held and
// never at count 0, where another waiter may still need the signal.
void LLockObjectShared::_ArmReleased() {
    released.Reset();
    if (nShared.load() == 0)
        released.Signal();
}

void LLockObjectShared::LockExclusive() {
    mutex.Lock();
    while (nShared.load() > 0) {
        _ArmReleased();
        mutex.Unlock();
        released.WaitInLoop();
        mutex.Lock();
    }
}

void LLockObjectShared::UpgradeLock() {
    mutex.Lock();
    _LeaveShared();
    while (nShared.load() > 0) {
        _ArmReleased();
        released.WaitInLoop();
    }
}

void LLockObjectShared::DowngradeLock() {
    released.Reset();
    nShared.fetch_add(1);
    mutex.Unlock();
}
